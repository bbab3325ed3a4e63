// The discovery of attached storages.
#include <boost/make_shared.hpp>
#include <cstring>

#include "Log.h"
#include "MediaFilter.h"
#include "PlatformLists.h"
#include "PlatformText.h"
#include "PlivTaskContentsMgr.h"
#include "StorageRecord.h"
#include "UsbRoot.h"

namespace dorn {
namespace {

constexpr int kPairingPasses = 3;
constexpr int kDeviceListFailureLines = 10;  // repeated to stand out in a busy log

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

}  // namespace

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

// Sets the sticks' ids from the database. Sticks that the database does not know after the last
// pass stay without an id.
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
        filter.Destroy();
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
        filter.Destroy();
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
        filter.Forget();
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
