#ifndef CONTENTS_MGR_DEFAULT_CONTEXT_LOOP_H
#define CONTENTS_MGR_DEFAULT_CONTEXT_LOOP_H

#include <glib.h>

#include <condition_variable>
#include <mutex>

namespace dorn {

// A main loop on the default main context that one thread runs and another one stops, in either
// order. Several of these may run at once: whichever holds the context dispatches for all.
class DefaultContextLoop {
public:
    DefaultContextLoop() = default;
    DefaultContextLoop(const DefaultContextLoop&) = delete;
    DefaultContextLoop& operator=(const DefaultContextLoop&) = delete;

    // Creates the loop and runs it until Stop, on the calling thread. Call once.
    void Run();

    // Stops Run and returns once it has ended, even if Run has not started yet. Waits for a
    // dispatch in progress on the loop's thread. Must not be called from the loop's own thread.
    void Stop();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    GMainLoop* m_loop = nullptr;  // guarded by m_mutex; set while Run runs
    bool m_stopping = false;      // guarded by m_mutex
    bool m_over = false;          // guarded by m_mutex
};

}  // namespace dorn

#endif
