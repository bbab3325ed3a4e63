#ifndef CONTENTS_MGR_SYNC_COMPLETION_WATCHER_H
#define CONTENTS_MGR_SYNC_COMPLETION_WATCHER_H

#include "DefaultContextLoop.h"
#include "MediaContent.h"
#include "ThreadCM.h"

namespace dorn {

// Receives the database's change reports for one engine while it lives: a thread that runs a main
// loop on the default main context.
class SyncCompletionWatcher : public ThreadCM {
public:
    using Callback = void (*)(media_content_error_e error, int pid,
                              media_content_db_update_item_type_e itemType,
                              media_content_db_update_type_e updateType,
                              media_content_type_e mediaType, char* uuid, char* path,
                              char* mimeType, void* userData);

    // What the watchers made from now on register. May be called before there is one.
    static void SetSyncCompletionCallback(Callback callback, void* userData);

    // Registered with the platform when it returns.
    SyncCompletionWatcher();
    // Ends the loop. The registration with the platform stays: a report may still come, on another
    // engine's loop, and what it is handed to must bear that.
    ~SyncCompletionWatcher() override;

    void t_Main() override;

private:
    // Shared by all watchers; guarded by a mutex of the class.
    static Callback s_pfunc;
    static void* s_pUser_data;
    static gint32 s_registerCount;

    // This watcher's copy of the two, so that another engine's registration does not change it.
    Callback m_callback;
    void* m_userData;
    DefaultContextLoop m_loop;
    SemphoreCM m_registered;
};

}  // namespace dorn

#endif
