// The connection to the platform, and the discovery of attached storages.
#include <boost/make_shared.hpp>
#include <cstring>
#include <utility>

#include "Log.h"
#include "MediaFilter.h"
#include "PlatformText.h"
#include "PlivTaskContentsMgr.h"
#include "StorageRecord.h"
#include "SyncCompletionWatcher.h"
#include "USBConnectionWatcher.h"
#include "UsbRoot.h"

namespace dorn {
namespace {

constexpr int kPairingPasses = 3;
constexpr int kDeviceListFailureLines = 10;  // repeated so that it stands out in a busy log

// The database's storage handles of one listing.
class StorageHandles {
public:
    StorageHandles() = default;
    ~StorageHandles() {
        for (void* handle : m_handles) media_storage_destroy(handle);
    }
    StorageHandles(const StorageHandles&) = delete;
    StorageHandles& operator=(const StorageHandles&) = delete;

    void List(media_filter_h filter) {
        media_storage_foreach_storage_from_db(filter, CPlivTaskContentsMgr::s_GetStorageCallback,
                                              &m_handles);
    }
    int Size() const { return static_cast<int>(m_handles.size()); }
    std::vector<void*>::const_iterator begin() const { return m_handles.begin(); }
    std::vector<void*>::const_iterator end() const { return m_handles.end(); }

private:
    std::vector<void*> m_handles;
};

// One list of devices, given back through the task manager.
class UsbList {
public:
    explicit UsbList(CPlivTaskContentsMgr& task) : m_task(task) {}
    ~UsbList() { Free(); }
    UsbList(const UsbList&) = delete;
    UsbList& operator=(const UsbList&) = delete;

    int Get(usb_class_e deviceClass) { return usb_device_get_device_list(deviceClass, &m_list); }
    void Free() { m_task.m_DestroyUSBList(std::exchange(m_list, nullptr)); }

    int Count() const {
        int count = 0;
        usb_device_list_get_count(m_list, &count);
        return count;
    }

    // The walk's next device: of index 0 first, then one after the other. Null, and logged, when
    // it cannot be had.
    usb_device_s* At(int index) {
        usb_device_s* device = nullptr;
        if (index == 0) {
            if (usb_device_list_get_first(m_list, &device) != 0)
                CM_PROGRESS(" FAILED TO usb_device_list_get_first \n");
        } else if (usb_device_list_get_next(m_list, &device) != 0) {
            CM_PROGRESS(" FAILED TO usb_device_list_get_next \n");
        }
        return device;
    }

private:
    CPlivTaskContentsMgr& m_task;
    usb_device_list_s* m_list = nullptr;
};

std::string MountPath(usb_device_s* device) {
    CM_PLATFORM_TEXT(path, usb_device_get_mountpath, device);
    return path.Get();
}

bool IsUnderUsbRoot(const std::string& path) {
    return path.find(kUsbRoot) != std::string::npos;
}

bool HasPath(void* mediaStorage, const std::string& usbPath) {
    CM_PLATFORM_TEXT(path, media_storage_get_path, mediaStorage);
    CM_PROGRESS("usbPath : [%s], storagePath: [%s]\n", usbPath.c_str(), path.Get());
    return usbPath == path.Get();
}

void LogDeviceListFailure(int error) {
    CM_PROGRESS(" Error Type is %d \n", error);
    for (int line = 0; line < kDeviceListFailureLines; ++line)
        CM_PROGRESS(" FAILED TO usb_device_get_device_list \n");
}

// Copies one text of the device into the record.
void CopyText(CMediaStorage& storage, usb_device_s* device, int (*getter)(usb_device_s*, char**),
              void (CMediaStorage::*setter)(const char*)) {
    CM_PLATFORM_TEXT(text, getter, device);
    (storage.*setter)(text.Get());
}

// Copies one number; what cannot be read becomes `fallback`.
template <typename Value, typename Argument>
void CopyValue(CMediaStorage& storage, usb_device_s* device, int (*getter)(usb_device_s*, Value*),
               void (CMediaStorage::*setter)(Argument), Value fallback) {
    Value value = fallback;
    static_cast<void>(getter(device, &value));
    (storage.*setter)(value);
}

}  // namespace

void FillStorageFromDevice(CMediaStorage& storage, usb_device_s* device) {
    using S = CMediaStorage;
    CopyText(storage, device, usb_device_get_devname, &S::SetDeviceName);
    CopyValue(storage, device, usb_mass_storage_get_disk_type, &S::SetDiskType, DISK_TYPE_UNKNOWN);
    CopyText(storage, device, usb_device_get_manufacturer, &S::SetManufacturer);
    CopyValue(storage, device, usb_device_get_vendor_id, &S::SetVendorID, 0);
    CopyValue(storage, device, usb_mass_storage_get_filesystem_type, &S::SetFileSystem,
              FSTYPE_OTHER);
    CopyText(storage, device, usb_device_get_product, &S::SetModelName);
    CopyText(storage, device, usb_device_get_serial, &S::SetSerial);
    CopyText(storage, device, usb_device_get_mountpath, &S::SetMountPath);
    CopyText(storage, device, usb_device_get_partlabel, &S::SetPartitionLabel);
    CopyValue(storage, device, usb_device_get_address, &S::SetAddress, 0);
    CopyValue(storage, device, usb_device_get_bus, &S::SetBus, 0);
    CopyValue(storage, device, usb_device_get_class, &S::SetDeviceClass, USB_CLASS_ALL);
}

bool CPlivTaskContentsMgr::Connect() {
    if (m_connected) {
        CM_PROGRESS(" Media is already Connected");
        return true;
    }
    if (media_content_connect() != 0) {
        CM_PROGRESS("failed to Media_content_connect");
        return false;
    }
    CM_PROGRESS("start usb_device_init...\n");
    if (usb_device_init() != 0) {
        CM_PROGRESS("failed to usb_device_init \n");
        return false;
    }
    {
        GMutexLock lock(m_storageMutex);
        m_storages.clear();
        if (!m_GetStorages(m_storages)) return m_CloseAfterFailedConnect();
    }
    m_StartWatchers();
    m_connected = true;
    return true;
}

// The database first; while it will not let go, the USB service is left as it is.
bool CPlivTaskContentsMgr::m_CloseAfterFailedConnect() {
    CM_PROGRESS(" failed to m_GetStorages() \n");
    if (media_content_disconnect() == 0)
        usb_device_fini();
    else
        CM_PROGRESS("failed to Media_content_disconnect");
    return false;
}

// The watchers take what is registered for their class when they are made: no other engine may
// register in between.
void CPlivTaskContentsMgr::m_StartWatchers() {
    static OwnGMutex registering;
    GMutexLock lock(registering);
    USBConnectionWatcher::SetUsbConnectedCallback(s_USBConnctedCallback, this);
    SyncCompletionWatcher::SetSyncCompletionCallback(s_SyncCompletedCallback, this);
    m_syncWatcher = std::make_unique<SyncCompletionWatcher>();
    m_usbWatcher = std::make_unique<USBConnectionWatcher>();
    m_listening = true;
}

bool CPlivTaskContentsMgr::Disconnect() {
    if (!m_connected) {
        CM_PROGRESS(" Media is already Disonnected");
        return false;
    }
    // A notification that is being worked on ends its pauses, so that the watchers can end.
    m_endPairing.Raise();
    m_listening = false;
    m_usbWatcher.reset();
    m_syncWatcher.reset();
    m_endPairing.Clear();
    if (media_content_disconnect() != 0) {
        CM_PROGRESS("failed to Media_content_disconnect");
        return false;
    }
    {
        GMutexLock lock(m_storageClearMutex);
        m_storages.clear();
    }
    {
        GMutexLock lock(m_queryMutex);
        m_queries.clear();
    }
    usb_device_fini();
    m_connected = false;
    return true;
}

bool CPlivTaskContentsMgr::GetStorages(StorageList& out) {
    if (!m_connected) {
        CM_PROGRESS(" Media is NOT Connected");
        return false;
    }
    GMutexLock lock(m_storageMutex);
    m_storages.clear();
    if (!m_GetStorages(m_storages)) {
        CM_PROGRESS(" FAILED TO m_GetStorageList() \n");
        return false;
    }
    out.insert(out.end(), m_storages.begin(), m_storages.end());
    return true;
}

bool CPlivTaskContentsMgr::m_GetStorages(StorageList& list) {
    CM_PROGRESS("[start to excute m_GetStorages]...\n");
    UsbList devices(*this);
    const int error = devices.Get(USB_CLASS_MASS_STORAGE);
    CM_PROGRESS("[result of usb_device_get_device_list is [%d]\n", error);
    if (error != 0) {
        LogDeviceListFailure(error);
        return false;
    }
    const int count = devices.Count();
    CM_PROGRESS("usbListSize === [%d]", count);
    bool anyUnderRoot = false;
    std::vector<usb_device_s*> sticks;
    for (int index = 0; index < count; ++index) {
        usb_device_s* device = devices.At(index);
        if (!device) continue;
        const std::string path = MountPath(device);
        CM_PROGRESS("usb_list[%d]:mountpath:[%s]\n", index, path.c_str());
        if (IsUnderUsbRoot(path)) {
            CM_PROGRESS("USB Storage is Exist\n");
            anyUnderRoot = true;
        }
        sticks.push_back(device);
        m_SetStorageInfo(nullptr, device, list);
    }
    if (!anyUnderRoot)
        CM_PROGRESS("USB Storage Not is Exist\n");
    else if (!m_PairStorages(sticks, list))
        return false;
    devices.Free();
    if (!m_AddCameras(list)) return false;
    CM_PROGRESS(" exit m_GetStorages...\n");
    return true;
}

// Gives the sticks' records the ids under which the database knows them. Sticks that it does not
// know after the last pass stay without.
bool CPlivTaskContentsMgr::m_PairStorages(const std::vector<usb_device_s*>& sticks,
                                          StorageList& list) {
    for (int pass = 1;; ++pass) {
        bool complete = false;
        if (!m_PairOnce(sticks, list, complete)) return false;
        if (pass == kPairingPasses) {
            CM_PROGRESS(" TimeOut Occured \n");
            return true;
        }
        if (complete) {
            CM_PROGRESS(" UsbScanning is Completed \n");
            return true;
        }
        if (!m_stop.Pause()) return true;
    }
}

bool CPlivTaskContentsMgr::m_PairOnce(const std::vector<usb_device_s*>& sticks, StorageList& list,
                                      bool& complete) {
    MediaFilter filter(*this);
    if (!filter.Create()) {
        CM_PROGRESS("[m_GetStorages] - failed to media_filter_create");
        return false;
    }
    StorageHandles handles;
    handles.List(filter);
    CM_PROGRESS("m_GetStorages storageListSize = %d ", handles.Size());
    CM_PROGRESS("usblist.size === [%d]", static_cast<int>(sticks.size()));
    size_t matches = 0;
    for (usb_device_s* stick : sticks) {
        const std::string path = MountPath(stick);
        for (void* handle : handles) {
            if (!HasPath(handle, path)) continue;
            m_UpdateStorageInfo(handle, stick, list);
            if (++matches < sticks.size()) continue;
            complete = true;
            return true;
        }
    }
    return true;
}

bool CPlivTaskContentsMgr::m_AddCameras(StorageList& list) {
    UsbList cameras(*this);
    const int error = cameras.Get(USB_CLASS_STILL_IMAGE);
    CM_PROGRESS("[usbListSize of usb_device_get_device_list camera is [%d]\n", error);
    if (error != 0) {
        LogDeviceListFailure(error);
        return false;
    }
    const int count = cameras.Count();
    CM_PROGRESS("usbListSize === [%d]", count);
    for (int index = 0; index < count; ++index) {
        usb_device_s* device = cameras.At(index);
        if (!device) continue;
        CM_PROGRESS("usb_list[%d]:mountpath:[%s]\n", index, MountPath(device).c_str());
        m_SetStorageInfo(nullptr, device, list);
    }
    return true;
}

bool CPlivTaskContentsMgr::m_SetStorageInfo(void* mediaStorage, usb_device_s* device,
                                            StorageList& list) {
    auto storage = boost::make_shared<CMediaStorage>();
    FillStorageFromDevice(*storage, device);
    auto deviceClass = USB_CLASS_ALL;
    usb_device_get_class(device, &deviceClass);
    if (deviceClass == USB_CLASS_MASS_STORAGE) storage->SetMeidaStorage(mediaStorage);
    if (mediaStorage) {
        CM_PLATFORM_TEXT(id, media_storage_get_storage_id, mediaStorage);
        CM_PROGRESS("storageID is : %s\n", id.Get());
        storage->SetDeviceID(id.Get());
    }
    list.push_back(storage);
    return true;
}

bool CPlivTaskContentsMgr::m_UpdateStorageInfo(void* mediaStorage, usb_device_s* device,
                                               StorageList& list) {
    const std::string path = MountPath(device);
    for (const auto& storage : list) {
        if (storage->GetDeviceMountPath() != path) continue;
        std::string id;
        if (mediaStorage) {
            CM_PLATFORM_TEXT(text, media_storage_get_storage_id, mediaStorage);
            CM_PROGRESS("storageID: %s\n", text.Get());
            id = text.Get();
        }
        CM_PROGRESS("tempStorageID: %s\n", id.c_str());
        storage->SetDeviceID(id);
        return true;
    }
    return false;
}

bool CPlivTaskContentsMgr::m_AddStorage(usb_device_s* device, StorageList& list) {
    CM_PROGRESS("[start to excute m_AddStorage]...\n");
    if (!device) {
        CM_PROGRESS(" m_AddStorage usb_device is null\n");
        return false;
    }
    auto deviceClass = USB_CLASS_ALL;
    usb_device_get_class(device, &deviceClass);
    if (deviceClass == USB_CLASS_STILL_IMAGE) return m_SetStorageInfo(nullptr, device, list);
    if (deviceClass != USB_CLASS_MASS_STORAGE) return false;
    const std::string path = MountPath(device);
    CM_PROGRESS("usb_device.mountpath:[%s]\n", path.c_str());
    if (!IsUnderUsbRoot(path)) {
        CM_PROGRESS("USB Storage is not Exist\n");
        return false;
    }
    m_SetStorageInfo(nullptr, device, list);
    for (int pass = 1;; ++pass) {
        bool found = false;
        if (!m_PairDevice(device, path, list, found)) return false;
        const bool last = pass == kPairingPasses;
        if (last)
            CM_PROGRESS(" TimeOut Occured \n");
        else if (found)
            CM_PROGRESS(" UsbScanning is Completed \n");
        if (found || last) return found;
        if (!m_endPairing.Pause()) return false;
    }
}

bool CPlivTaskContentsMgr::m_PairDevice(usb_device_s* device, const std::string& path,
                                        StorageList& list, bool& found) {
    MediaFilter filter(*this);
    if (!filter.Create()) {
        CM_PROGRESS("[m_AddStorage] - failed to media_filter_create");
        return false;
    }
    StorageHandles handles;
    handles.List(filter);
    CM_PROGRESS("m_AddStorage storageListSize = %d ", handles.Size());
    CM_PROGRESS("storageList.size(): [%d]", static_cast<int>(list.size()));
    for (void* handle : handles) {
        if (!HasPath(handle, path)) continue;
        CM_PROGRESS("found storagePath: [%s]", path.c_str());
        m_UpdateStorageInfo(handle, device, list);
        found = true;
        break;
    }
    return true;
}

bool CPlivTaskContentsMgr::m_GetStorageInfo(usb_device_s* device,
                                            boost::shared_ptr<CMediaStorage>& out) {
    MediaFilter filter(*this);
    if (!filter.Create()) {
        CM_PROGRESS("failed to media_filter_create");
        return false;
    }
    StorageHandles handles;
    handles.List(filter);
    const std::string usbPath = MountPath(device);
    StorageList matching;
    for (void* handle : handles) {
        CM_PLATFORM_TEXT(path, media_storage_get_path, handle);
        CM_PROGRESS("StoragePath : %s \n", path.Get());
        if (usbPath == path.Get()) m_SetStorageInfo(handle, device, matching);
    }
    if (matching.empty()) return false;
    out = matching.front();
    return true;
}

boost::shared_ptr<CMediaStorage> CPlivTaskContentsMgr::m_GetStorageByMountPath(
    std::string mountPath) {
    CM_PROGRESS("MOUNT PATH = %s", mountPath.c_str());
    GMutexLock lock(m_storageMutex);
    GMutexLock clearLock(m_storageClearMutex);
    CM_PROGRESS("storages size (%d)", static_cast<int>(m_storages.size()));
    for (const auto& storage : m_storages) {
        const std::string path = storage->GetDeviceMountPath();
        CM_PROGRESS("deviceMountPath(%s), mountPath(%s)\n", path.c_str(), mountPath.c_str());
        if (path == mountPath && path != kNoMountPath) return storage;
    }
    return boost::shared_ptr<CMediaStorage>();
}

bool CPlivTaskContentsMgr::s_GetStorageCallback(void* storage, void* userData) {
    void* clone = nullptr;
    if (media_storage_clone(&clone, storage) == 0)
        static_cast<std::vector<void*>*>(userData)->push_back(clone);
    return true;
}

void CPlivTaskContentsMgr::m_DestroyUSBList(usb_device_list_s* list) {
    if (list) usb_device_free_device_list(list);
}

}  // namespace dorn
