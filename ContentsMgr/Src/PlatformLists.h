#ifndef CONTENTS_MGR_PLATFORM_LISTS_H
#define CONTENTS_MGR_PLATFORM_LISTS_H

#include <utility>
#include <vector>

#include "Log.h"
#include "PlivTaskContentsMgr.h"

namespace dorn {

// The database's storage handles from one listing.
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

// One list of devices, released through the task manager.
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

    // The next device of the iteration: index 0 first, then in order. Null, and logged, when it
    // cannot be read.
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

}  // namespace dorn

#endif
