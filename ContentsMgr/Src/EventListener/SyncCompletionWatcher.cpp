#include "SyncCompletionWatcher.h"

#include "GMutexLock.h"
#include "Log.h"

namespace dorn {
namespace {

GMutex g_classMutex;

}  // namespace

SyncCompletionWatcher::Callback SyncCompletionWatcher::s_pfunc = nullptr;
void* SyncCompletionWatcher::s_pUser_data = nullptr;
gint32 SyncCompletionWatcher::s_registerCount = 0;

void SyncCompletionWatcher::SetSyncCompletionCallback(Callback callback, void* userData) {
    GMutexLock lock(g_classMutex);
    ++s_registerCount;
    CM_TRACE("CALLED COUNT: %d, CB ADDR: %p, USER DATA : %p \n", s_registerCount,
             reinterpret_cast<void*>(callback), userData);
    s_pfunc = callback;
    s_pUser_data = userData;
}

SyncCompletionWatcher::SyncCompletionWatcher() {
    {
        GMutexLock lock(g_classMutex);
        m_callback = s_pfunc;
        m_userData = s_pUser_data;
    }
    if (Create("SyncCompletionWatcher")) m_registered.Wait();
}

SyncCompletionWatcher::~SyncCompletionWatcher() {
    if (HasThread()) m_loop.Stop();
    ThreadJoin();
    Destroy();
}

void SyncCompletionWatcher::t_Main() {
    media_content_set_db_updated_cb(m_callback, m_userData);
    m_registered.Post();
    m_loop.Run();
}

}  // namespace dorn
