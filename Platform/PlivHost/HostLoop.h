// The host's own main loop: transports, signals and book-keeping of clients run on its thread.
#ifndef PLATFORM_PLIV_HOST_HOST_LOOP_H
#define PLATFORM_PLIV_HOST_HOST_LOOP_H

#include <functional>
#include <utility>

#include "PlivHost/GlibPtr.h"
#include "Process/ContextQueue.h"

namespace platform {

// The thread that makes the object is the host thread: its thread-default context is ours until
// the object ends, and only it may call Run and Drain. Everything else may be called anywhere.
class HostLoop {
public:
    HostLoop();
    ~HostLoop();
    HostLoop(const HostLoop&) = delete;
    HostLoop& operator=(const HostLoop&) = delete;

    // Serves until Quit. A Quit that came before makes it return at once.
    void Run();
    void Quit();

    // Runs `task` on the host thread soon, never inside the call. Dropped when the loop is gone
    // before it came to it.
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
