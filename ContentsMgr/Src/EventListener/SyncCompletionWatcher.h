#ifndef CONTENTS_MGR_SYNC_COMPLETION_WATCHER_H
#define CONTENTS_MGR_SYNC_COMPLETION_WATCHER_H

#include "MediaContent.h"
#include "PlatformWatcher.h"

namespace dorn {

// Receives the database's change reports for one engine while it lives.
class SyncCompletionWatcher : public PlatformWatcher<media_content_db_updated_cb> {
public:
    // What the watchers made from now on register. May be called before there is one.
    static void SetSyncCompletionCallback(Callback callback, void* userData);

    // Registered with the platform when it returns.
    SyncCompletionWatcher();
    // Ends the loop. The registration with the platform stays: a report may still come, on another
    // engine's loop, and what it is handed to must bear that.
    ~SyncCompletionWatcher() override;

protected:
    void Register(Callback callback, void* userData) override;
};

}  // namespace dorn

#endif
