#include "SyncCompletionWatcher.h"

#include "Log.h"

namespace dorn {

void SyncCompletionWatcher::SetSyncCompletionCallback(Callback callback, void* userData) {
    CM_TRACE("CALLED COUNT: %d, CB ADDR: %p, USER DATA : %p \n", CountRegistration(),
             reinterpret_cast<void*>(callback), userData);
    Store(callback, userData);
}

SyncCompletionWatcher::SyncCompletionWatcher() {
    Start("SyncCompletionWatcher");
}

SyncCompletionWatcher::~SyncCompletionWatcher() {
    StopLoop();
    Join();
}

void SyncCompletionWatcher::Register(Callback callback, void* userData) {
    media_content_set_db_updated_cb(callback, userData);
}

}  // namespace dorn
