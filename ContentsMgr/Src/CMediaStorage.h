#ifndef CONTENTS_MGR_C_MEDIA_STORAGE_H
#define CONTENTS_MGR_C_MEDIA_STORAGE_H

#include <mutex>
#include <string>

#include "UsbDevice.h"

namespace dorn {

enum DeviceClass : int {
    DEVICE_CLASS_MSC = 0,  // mass storage
    DEVICE_CLASS_PTP = 1,  // camera, picture transfer
    DEVICE_CLASS_UNKNOWN = 2,
};

enum FileSystem : int {
    FILE_SYSTEM_VFAT = 1,
    FILE_SYSTEM_EXT4 = 2,
    FILE_SYSTEM_NTFS = 3,
    FILE_SYSTEM_UNKNOWN = 4,
};

enum DiskType : int {
    DISK_TYPE_1 = 1,
    DISK_TYPE_OTHER = 2,
};

// One attached device: a partition of a mass storage, or a camera. Shared by pointer. Filled in
// before other threads see it; only the device id is set later, once the database knows the device,
// possibly while a command reads the record: access to the id is thread-safe.
class CMediaStorage {
public:
    CMediaStorage();
    ~CMediaStorage();  // releases the database's handle, if any
    CMediaStorage(const CMediaStorage&) = delete;
    CMediaStorage& operator=(const CMediaStorage&) = delete;

    std::string GetDeviceID() const;  // the database's storage id; empty: not in the database
    std::string GetDeviceMountPath() const;
    std::string GetDeviceName() const;
    int GetVendorID() const;
    std::string GetManufacturer() const;
    DiskType GetDiskType() const;
    FileSystem GetFileSystem() const;
    std::string GetModelName() const;
    std::string GetSerial() const;
    std::string GetPartitionLabel() const;
    int GetAddress() const;
    int GetBus() const;
    DeviceClass GetDeviceClass() const;

    // Read from the mounted file system at each call, in units of 1024 bytes; 0 when that fails.
    // May block for as long as the file system does.
    long long GetDeviceTotalSize() const;
    long long GetDeviceAvailableSize() const;  // including blocks reserved for root

    // Texts are copied and must not be null.
    void SetDeviceName(const char* name);
    void SetDeviceID(std::string id);
    void SetVendorID(int id);
    void SetManufacturer(const char* manufacturer);
    void SetDiskType(disktype_e type);
    void SetMeidaStorage(void* storage);  // keeps a clone of the database's handle; call once
    void SetFileSystem(fstype_e type);
    void SetModelName(const char* name);
    void SetSerial(const char* serial);
    void SetMountPath(const char* path);
    void SetPartitionLabel(const char* label);
    void SetAddress(int address);
    void SetBus(int bus);
    void SetDeviceClass(usb_class_e deviceClass);

    void PrintInformation();  // prints nothing

private:
    void* m_mediaStorage = nullptr;
    std::string m_deviceName;
    mutable std::mutex m_deviceIdMutex;  // held for one copy
    std::string m_deviceId;              // guarded by m_deviceIdMutex
    int m_vendorId = 0;
    std::string m_manufacturer;
    DiskType m_diskType = DISK_TYPE_OTHER;
    FileSystem m_fileSystem = FILE_SYSTEM_UNKNOWN;
    std::string m_modelName;
    std::string m_serial;
    std::string m_mountPath;
    std::string m_partitionLabel;
    int m_address = 0;
    int m_bus = 0;
    DeviceClass m_deviceClass = DEVICE_CLASS_UNKNOWN;
};

}  // namespace dorn

#endif
