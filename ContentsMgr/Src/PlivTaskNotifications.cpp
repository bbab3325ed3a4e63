// Platform notifications: devices that come and go, and database changes.
#include <sys/time.h>

#include <boost/make_shared.hpp>
#include <cstring>

#include "LiveTasks.h"
#include "Log.h"
#include "PlatformText.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"
#include "StorageRecord.h"
#include "UsbRoot.h"

namespace dorn {
namespace {

constexpr char kRule[] = "==================================================\n";

// The current seconds and microseconds in one number, so that it fits in one atomic.
gint64 PackedNow() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return (static_cast<gint64>(now.tv_sec) << 32) | static_cast<guint32>(now.tv_usec);
}

// Milliseconds in 32 bits, wrapped; for the log only.
gint32 Milliseconds(gint64 packed) {
    const auto seconds = static_cast<guint32>(packed >> 32);
    const auto microseconds = static_cast<guint32>(packed);
    return static_cast<gint32>(seconds * 1000u + microseconds / 1000u);
}

gint32 Difference(gint32 later, gint32 earlier) {
    return static_cast<gint32>(static_cast<guint32>(later) - static_cast<guint32>(earlier));
}

std::string DeviceText(usb_device_s* device, int (*getter)(usb_device_s*, char**)) {
    CM_PLATFORM_TEXT(text, getter, device);
    return text.Get();
}

int DeviceNumber(usb_device_s* device, int (*getter)(usb_device_s*, int*)) {
    int number = 0;
    static_cast<void>(getter(device, &number));
    return number;
}

int ClassOf(usb_device_s* device) {
    auto deviceClass = USB_CLASS_ALL;
    usb_device_get_class(device, &deviceClass);
    return deviceClass;
}

// Two cameras of one model may have identical texts: bus and address distinguish them.
struct CameraIdentity {
    explicit CameraIdentity(usb_device_s* device)
        : serial(DeviceText(device, usb_device_get_serial)),
          label(DeviceText(device, usb_device_get_partlabel)),
          product(DeviceText(device, usb_device_get_product)),
          bus(DeviceNumber(device, usb_device_get_bus)),
          address(DeviceNumber(device, usb_device_get_address)) {}

    bool Matches(const CMediaStorage& storage) const {
        return storage.GetSerial() == serial && storage.GetPartitionLabel() == label &&
               storage.GetModelName() == product && storage.GetBus() == bus &&
               storage.GetAddress() == address;
    }

    std::string serial, label, product;
    int bus, address;
};

// What a notification requires. Ignored: nothing.
enum class Change { Ignored, Connected, Disconnected };

Change ClassifyMount(const char* action, usb_device_s* device, Change change) {
    auto fileSystem = FSTYPE_OTHER;
    usb_mass_storage_get_filesystem_type(device, &fileSystem);
    CM_PROGRESS("ACTION: %s, PATH: %s, F/S: %d, TYPE: %d", action,
                DeviceText(device, usb_device_get_mountpath).c_str(), static_cast<int>(fileSystem),
                ClassOf(device));
    return change;
}

// Devices with a file system are reported by their mounts; only cameras are plugged and unplugged
// as devices.
Change ClassifyDevice(const char* action, usb_device_s* device, Change change) {
    if (ClassOf(device) != USB_CLASS_STILL_IMAGE) {
        CM_PROGRESS("ACTION : [%s], not USB_CAMERA...\n", action);
        return Change::Ignored;
    }
    CM_PROGRESS("ACTION : [%s], is USB_CAMERA...\n", action);
    return change;
}

Change Classify(const char* action, usb_device_s* device) {
    if (strcmp(action, "mounted") == 0) return ClassifyMount(action, device, Change::Connected);
    if (strcmp(action, "blocked") == 0) return ClassifyMount(action, device, Change::Disconnected);
    if (strcmp(action, "added") == 0) return ClassifyDevice(action, device, Change::Connected);
    if (strcmp(action, "removed") == 0) return ClassifyDevice(action, device, Change::Disconnected);
    CM_PROGRESS("action is [%s]\n", action);
    return Change::Ignored;
}

void LogDevice(usb_device_s* device) {
    CM_TRACE("\n");
    CM_TRACE("%s", kRule);
    CM_TRACE("<usb_device_h info>\n");
    CM_TRACE("protocol : %d\n", DeviceNumber(device, usb_device_get_protocol));
    CM_TRACE("bus : %d\n", DeviceNumber(device, usb_device_get_bus));
    CM_TRACE("address : %d\n", DeviceNumber(device, usb_device_get_address));
    CM_TRACE("number : %d\n", DeviceNumber(device, usb_device_get_number));
    CM_TRACE("manufacturer : %s\n", DeviceText(device, usb_device_get_manufacturer).c_str());
    CM_TRACE("product : %s\n", DeviceText(device, usb_device_get_product).c_str());
    CM_TRACE("serial : %s\n", DeviceText(device, usb_device_get_serial).c_str());
    CM_TRACE("partlabel : %s\n", DeviceText(device, usb_device_get_partlabel).c_str());
}

void LogUpdateStart(bool connected) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    CM_PROGRESS("==========Start to m_UpdateSotrages connected [%b]=======\n",
                static_cast<unsigned>(connected));
#pragma GCC diagnostic pop
}

using Storage = boost::shared_ptr<CMediaStorage>;
using Storages = CPlivTaskContentsMgr::StorageList;

// The last listed record of the device, or `otherwise`.
Storage FindConnected(usb_device_s* device, bool isCamera, const Storages& storages,
                      Storage otherwise) {
    Storage found = otherwise;
    if (!isCamera) {
        const std::string path = DeviceText(device, usb_device_get_mountpath);
        for (const Storage& storage : storages)
            if (storage->GetDeviceMountPath() == path) found = storage;
        return found;
    }
    CM_PROGRESS(" USB_CAMERA connected...\n");
    const CameraIdentity camera(device);
    for (const Storage& storage : storages) {
        if (!camera.Matches(*storage)) continue;
        found = storage;
        CM_PROGRESS(" USB_CAMERA connected.find item success..\n");
    }
    return found;
}

// Removes every record of the camera; reports the last one.
void RemoveCamera(usb_device_s* device, Storages& storages, Storage& reported) {
    CM_PROGRESS(" USB_CAMERA disconnected...\n");
    const CameraIdentity camera(device);
    for (auto at = storages.begin(); at != storages.end();) {
        if (!camera.Matches(**at)) {
            ++at;
            continue;
        }
        reported = *at;
        at = storages.erase(at);
        CM_PROGRESS(" USB_CAMERA disconnected.find item success..\n");
    }
}

// Removes the first record with the device's mount path. For a stick that record is reported;
// otherwise the report is made from the device.
void RemoveMounted(usb_device_s* device, bool isStick, Storages& storages, Storage& reported) {
    const std::string path = DeviceText(device, usb_device_get_mountpath);
    bool found = false;
    for (auto at = storages.begin(); at != storages.end(); ++at) {
        if ((*at)->GetDeviceMountPath() != path) continue;
        if (isStick) {
            reported = *at;
            found = true;
        }
        storages.erase(at);
        break;
    }
    CM_PROGRESS("bFound === [%d]\n", found ? 1 : 0);
    if (found) return;
    FillStorageFromDevice(*reported, device);
    reported->SetDeviceID("");
}

void LogUpdate(media_content_error_e error, int pid, media_content_db_update_item_type_e itemType,
               media_content_db_update_type_e updateType, media_content_type_e mediaType,
               const char* uuid, const char* mimeType) {
    CM_TRACE("\n");
    CM_TRACE("%s", kRule);
    CM_TRACE("<db update infomation>\n");
    CM_TRACE("media_content_error_e : %d\n", static_cast<int>(error));
    CM_TRACE("pid : %d\n", pid);
    CM_TRACE("media_content_db_update_item_type_e : %d\n", static_cast<int>(itemType));
    CM_TRACE("media_content_db_update_type_e : %d\n", static_cast<int>(updateType));
    CM_TRACE("media_content_type_e : %d\n", static_cast<int>(mediaType));
    if (uuid) CM_TRACE("uuid : %s\n", uuid);
    if (mimeType) CM_TRACE("mime_type : %s\n", mimeType);
}

bool IsListedMedia(media_content_type_e type) {
    return type == MEDIA_CONTENT_TYPE_IMAGE || type == MEDIA_CONTENT_TYPE_VIDEO ||
           type == MEDIA_CONTENT_TYPE_MUSIC;
}

}  // namespace

void CPlivTaskContentsMgr::s_USBConnctedCallback(usb_device_s* device, char* action,
                                                 void* userData) {
    if (!action || !userData) {
        CM_PROGRESS("cb error\n");
        return;
    }
    const LiveTasks::Pin pin(userData);
    CPlivTaskContentsMgr* self = pin.Get();
    if (!self) return;
    const gint64 now = PackedNow();
    self->m_usbEventStart = now;
    CM_PROGRESS("startTime = %d\n", Milliseconds(now));
    const Change change = Classify(action, device);
    if (change == Change::Ignored) return;
    const bool connected = change == Change::Connected;
    auto storage = boost::make_shared<CMediaStorage>();
    LogDevice(device);
    LogUpdateStart(connected);
    self->m_UpdateSotrages(device, storage, connected);
    self->m_OnUsbConnectionChanged(connected, storage);
}

void CPlivTaskContentsMgr::m_UpdateSotrages(usb_device_s* device,
                                            boost::shared_ptr<CMediaStorage>& storage,
                                            bool connected) {
    CM_PROGRESS("%s", connected ? "CONNECTED" : "DISCONNECTED");
    GMutexLock lock(m_storageMutex);
    // Asked once: a device that is going may answer differently the next time.
    const auto deviceClass = ClassOf(device);
    const bool isCamera = deviceClass == USB_CLASS_STILL_IMAGE;
    if (connected) {
        m_AddStorage(device, m_storages);
        storage = FindConnected(device, isCamera, m_storages, storage);
    } else if (isCamera) {
        RemoveCamera(device, m_storages, storage);
    } else {
        RemoveMounted(device, deviceClass == USB_CLASS_MASS_STORAGE, m_storages, storage);
    }
}

void CPlivTaskContentsMgr::m_OnUsbConnectionChanged(bool connected,
                                                    boost::shared_ptr<CMediaStorage>& storage) {
    CM_TRACE("%s", connected ? "CONNECTED" : "DISCONNECTED");
    if (auto* engine = m_engine.load()) engine->OnUsbConnectionChanged(connected, storage);
}

void CPlivTaskContentsMgr::s_SyncCompletedCallback(media_content_error_e error, int pid,
                                                   media_content_db_update_item_type_e itemType,
                                                   media_content_db_update_type_e updateType,
                                                   media_content_type_e mediaType, char* uuid,
                                                   char* path, char* mimeType, void* userData) {
    const LiveTasks::Pin pin(userData);
    CPlivTaskContentsMgr* self = pin.Get();
    if (!self) return;
    LogUpdate(error, pid, itemType, updateType, mediaType, uuid, mimeType);
    if (!path) {
        CM_PROGRESS("ERROR: path is NULL!\n");
        return;
    }
    CM_TRACE("path : %s\n", path);
    CM_TRACE("======================s_SyncCompletedCallback============================\n");
    if (updateType == MEDIA_CONTENT_UPDATE && itemType == MEDIA_CONTENT_ITEM_DIRECTORY && !mimeType)
        self->m_ReportScanEnd(error, path);
    if (IsListedMedia(mediaType) && strstr(path, kUsbMediaRoot))
        self->m_OnMediaUpdated(updateType, path);
}

void CPlivTaskContentsMgr::m_ReportScanEnd(int error, const std::string& path) {
    const auto storage = m_GetStorageByMountPath(path);
    if (!storage) return;
    m_OnSyncFinished(error, storage->GetDeviceID());
    const gint32 end = Milliseconds(PackedNow());
    CM_PROGRESS("endTime = %d\n", end);
    CM_PROGRESS("\n");
    CM_PROGRESS("ElapsedTime = %d ms\n", Difference(end, Milliseconds(m_usbEventStart)));
}

void CPlivTaskContentsMgr::m_OnSyncFinished(int error, std::string storageId) {
    CM_TRACE("RESULT: %d", error);
    if (auto* engine = m_engine.load()) engine->OnSyncFinished(error == 0, storageId);
}

void CPlivTaskContentsMgr::m_OnMediaUpdated(int updateType, std::string path) {
    CM_TRACE("TYPE: %d, MEDIA PATH: %s", updateType, path.c_str());
    if (auto* engine = m_engine.load()) engine->OnMediaUpdated(updateType, path);
}

}  // namespace dorn
