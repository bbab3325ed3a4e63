// The connection to the platform: its services and their notifications.
#include "Log.h"
#include "PlivEngineContentsMgr.h"
#include "PlivTaskContentsMgr.h"
#include "SyncCompletionWatcher.h"
#include "USBConnectionWatcher.h"

namespace dorn {

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
    if (!m_ListStoragesAnew()) {
        m_CloseAfterFailedConnect();
        return false;
    }
    m_StartWatchers();
    m_connected = true;
    return true;
}

bool CPlivTaskContentsMgr::m_ListStoragesAnew() {
    GMutexLock lock(m_storageMutex);
    m_storages.clear();
    if (m_GetStorages(m_storages)) return true;
    CM_PROGRESS(" failed to m_GetStorages() \n");
    return false;
}

// Disconnects the database first; if it refuses, the USB service is left as it is. Runs without the
// storage mutex: closing may wait for a report that takes it.
void CPlivTaskContentsMgr::m_CloseAfterFailedConnect() {
    if (media_content_disconnect() == 0)
        usb_device_fini();
    else
        CM_PROGRESS("failed to Media_content_disconnect");
}

// A watcher takes the callback stored for its class when it is created: no other engine may store
// one in between.
void CPlivTaskContentsMgr::m_StartWatchers() {
    static OwnGMutex registering;
    GMutexLock lock(registering);
    USBConnectionWatcher::SetUsbConnectedCallback(s_USBConnctedCallback, this);
    SyncCompletionWatcher::SetSyncCompletionCallback(s_SyncCompletedCallback, this);
    m_syncWatcher = std::make_unique<SyncCompletionWatcher>();
    m_usbWatcher = std::make_unique<USBConnectionWatcher>();
}

bool CPlivTaskContentsMgr::Disconnect() {
    if (!m_connected) {
        CM_PROGRESS(" Media is already Disonnected");
        return false;
    }
    // A notification in progress ends its pauses, so that the watchers can end.
    m_endPairing.Raise();
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
        const size_t bytes = m_queries.Clear();
        if (auto* engine = m_engine.load()) engine->LetGo(bytes);
    }
    usb_device_fini();
    m_connected = false;
    return true;
}

}  // namespace dorn
