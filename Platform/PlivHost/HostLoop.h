// The host's own main loop; transports, signals and client bookkeeping run on its thread.
#ifndef PLATFORM_PLIV_HOST_HOST_LOOP_H
#define PLATFORM_PLIV_HOST_HOST_LOOP_H

#include <functional>
#include <utility>

#include "PlivHost/GlibPtr.h"
#include "Process/ContextQueue.h"

namespace platform {

// The thread that creates the object is the host thread: the object's context is its thread-default
// context until destruction, and only that thread may call Run and Drain. Everything else may be
// called from any thread.
class HostLoop {
public:
    HostLoop();
    ~HostLoop();
    HostLoop(const HostLoop&) = delete;
    HostLoop& operator=(const HostLoop&) = delete;

    // Serves until Quit. Returns at once if Quit was called before.
    void Run();
    void Quit();

    // Runs `task` on the host thread soon, never inside the call. Dropped when the loop ends first.
    void Post(std::function<void()> task) { m_queue.Post(std::move(task)); }

    // Serves whatever is ready now, without waiting. For teardown.
    void Drain();

    GMainContext* Context() const { return m_context.get(); }

private:
    const ContextPtr m_context;
    const LoopPtr m_loop;
    ContextQueue m_queue;
};

}  // namespace platform

#endif
