#include "CMediaStorage.h"

#include <sys/vfs.h>

#include <cstdint>
#include <utility>

#include "MediaContent.h"

namespace dorn {
namespace {

// Kilobytes in `blocks` blocks. The product wraps instead of overflowing: no value from a damaged
// file system may cause undefined behaviour here.
long long Kilobytes(long blockSize, uint64_t blocks) {
    const uint64_t bytes = static_cast<uint64_t>(static_cast<int64_t>(blockSize)) * blocks;
    return static_cast<int64_t>(bytes) / 1024;
}

bool ReadFileSystem(const std::string& mountPath, struct statfs& result) {
    result = {};
    return statfs(mountPath.c_str(), &result) >= 0;
}

}  // namespace

CMediaStorage::CMediaStorage() = default;

CMediaStorage::~CMediaStorage() {
    if (m_mediaStorage) media_storage_destroy(m_mediaStorage);
}

std::string CMediaStorage::GetDeviceID() const {
    std::lock_guard<std::mutex> lock(m_deviceIdMutex);
    return m_deviceId;
}
std::string CMediaStorage::GetDeviceMountPath() const {
    return m_mountPath;
}
std::string CMediaStorage::GetDeviceName() const {
    return m_deviceName;
}
int CMediaStorage::GetVendorID() const {
    return m_vendorId;
}
std::string CMediaStorage::GetManufacturer() const {
    return m_manufacturer;
}
DiskType CMediaStorage::GetDiskType() const {
    return m_diskType;
}
FileSystem CMediaStorage::GetFileSystem() const {
    return m_fileSystem;
}
std::string CMediaStorage::GetModelName() const {
    return m_modelName;
}
std::string CMediaStorage::GetSerial() const {
    return m_serial;
}
std::string CMediaStorage::GetPartitionLabel() const {
    return m_partitionLabel;
}
int CMediaStorage::GetAddress() const {
    return m_address;
}
int CMediaStorage::GetBus() const {
    return m_bus;
}
DeviceClass CMediaStorage::GetDeviceClass() const {
    return m_deviceClass;
}

long long CMediaStorage::GetDeviceTotalSize() const {
    struct statfs fileSystem;
    if (!ReadFileSystem(m_mountPath, fileSystem)) return 0;
    return Kilobytes(fileSystem.f_bsize, fileSystem.f_blocks);
}

long long CMediaStorage::GetDeviceAvailableSize() const {
    struct statfs fileSystem;
    if (!ReadFileSystem(m_mountPath, fileSystem)) return 0;
    return Kilobytes(fileSystem.f_bsize, fileSystem.f_bfree);
}

void CMediaStorage::SetDeviceName(const char* name) {
    m_deviceName = name;
}
void CMediaStorage::SetDeviceID(std::string id) {
    std::lock_guard<std::mutex> lock(m_deviceIdMutex);
    m_deviceId = std::move(id);
}
void CMediaStorage::SetVendorID(int id) {
    m_vendorId = id;
}
void CMediaStorage::SetManufacturer(const char* manufacturer) {
    m_manufacturer = manufacturer;
}
void CMediaStorage::SetModelName(const char* name) {
    m_modelName = name;
}
void CMediaStorage::SetSerial(const char* serial) {
    m_serial = serial;
}
void CMediaStorage::SetMountPath(const char* path) {
    m_mountPath = path;
}
void CMediaStorage::SetPartitionLabel(const char* label) {
    m_partitionLabel = label;
}
void CMediaStorage::SetAddress(int address) {
    m_address = address;
}
void CMediaStorage::SetBus(int bus) {
    m_bus = bus;
}

void CMediaStorage::SetDiskType(disktype_e type) {
    m_diskType = static_cast<int>(type) == DISK_TYPE_1 ? DISK_TYPE_1 : DISK_TYPE_OTHER;
}

void CMediaStorage::SetMeidaStorage(void* storage) {
    media_storage_clone(&m_mediaStorage, storage);
}

void CMediaStorage::SetFileSystem(fstype_e type) {
    switch (static_cast<int>(type)) {
        case FSTYPE_VFAT:
            m_fileSystem = FILE_SYSTEM_VFAT;
            break;
        case FSTYPE_EXT4:
            m_fileSystem = FILE_SYSTEM_EXT4;
            break;
        case FSTYPE_NTFS:
            m_fileSystem = FILE_SYSTEM_NTFS;
            break;
        default:
            m_fileSystem = FILE_SYSTEM_UNKNOWN;
            break;
    }
}

void CMediaStorage::SetDeviceClass(usb_class_e deviceClass) {
    switch (static_cast<int>(deviceClass)) {
        case USB_CLASS_MASS_STORAGE:
            m_deviceClass = DEVICE_CLASS_MSC;
            break;
        case USB_CLASS_STILL_IMAGE:
            m_deviceClass = DEVICE_CLASS_PTP;
            break;
        default:
            m_deviceClass = DEVICE_CLASS_UNKNOWN;
            break;
    }
}

void CMediaStorage::PrintInformation() {}

}  // namespace dorn
