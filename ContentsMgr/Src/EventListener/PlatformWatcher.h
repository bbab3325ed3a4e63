#ifndef CONTENTS_MGR_PLATFORM_WATCHER_H
#define CONTENTS_MGR_PLATFORM_WATCHER_H

#include "DefaultContextLoop.h"
#include "GMutexLock.h"
#include "ThreadCM.h"

namespace dorn {

// The common part of the two watchers: a thread that registers a callback with the platform and
// then runs a main loop on the default main context. A derived constructor ends with Start, a
// derived destructor begins with StopLoop and ends with Join.
template <typename PlatformCallback>
class PlatformWatcher : public ThreadCM {
public:
    using Callback = PlatformCallback;

protected:
    PlatformWatcher() {
        GMutexLock lock(s_classMutex);
        m_callback = s_pfunc;
        m_userData = s_pUser_data;
    }

    // The number of callbacks set so far, including this one.
    static gint32 CountRegistration() {
        GMutexLock lock(s_classMutex);
        return ++s_registerCount;
    }
    // Sets what later watchers of this kind register.
    static void Store(Callback callback, void* userData) {
        GMutexLock lock(s_classMutex);
        s_pfunc = callback;
        s_pUser_data = userData;
    }

    // Returns once the callback is registered.
    void Start(const char* threadName) {
        if (Create(threadName)) m_registered.Wait();
    }
    void StopLoop() {
        if (HasThread()) m_loop.Stop();
    }
    void Join() {
        ThreadJoin();
        Destroy();
    }

    void t_Main() override {
        Register(m_callback, m_userData);
        m_registered.Post();
        m_loop.Run();
    }
    virtual void Register(Callback callback, void* userData) = 0;

    // This watcher's copy, so that another engine's registration does not change it.
    Callback m_callback;
    void* m_userData;

private:
    // Shared by all watchers of this kind; guarded by s_classMutex.
    inline static GMutex s_classMutex;
    inline static Callback s_pfunc = nullptr;
    inline static void* s_pUser_data = nullptr;
    inline static gint32 s_registerCount = 0;

    DefaultContextLoop m_loop;
    SemphoreCM m_registered;
};

}  // namespace dorn

#endif
