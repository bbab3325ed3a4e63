#ifndef CONTENTS_MGR_SYNC_COMPLETION_WATCHER_H
#define CONTENTS_MGR_SYNC_COMPLETION_WATCHER_H

#include "MediaContent.h"
#include "PlatformWatcher.h"

namespace dorn {

// Receives the database's change reports for one engine while it lives.
class SyncCompletionWatcher : public PlatformWatcher<media_content_db_updated_cb> {
public:
    // Sets what later watchers register. May be called before there is a watcher.
    static void SetSyncCompletionCallback(Callback callback, void* userData);

    // The callback is registered with the platform on return.
    SyncCompletionWatcher();
    // Stops the loop. The registration with the platform stays: a report may still arrive, on
    // another engine's loop, and the receiver must cope with that.
    ~SyncCompletionWatcher() override;

protected:
    void Register(Callback callback, void* userData) override;
};

}  // namespace dorn

#endif
