#ifndef CONTENTS_MGR_DEFAULT_CONTEXT_LOOP_H
#define CONTENTS_MGR_DEFAULT_CONTEXT_LOOP_H

#include <glib.h>

#include <condition_variable>
#include <mutex>

namespace dorn {

// A main loop on the default main context that one thread runs and another one ends, in whatever
// order the two come. Several of these may run at once: whichever holds the context dispatches
// for all.
class DefaultContextLoop {
public:
    DefaultContextLoop() = default;
    DefaultContextLoop(const DefaultContextLoop&) = delete;
    DefaultContextLoop& operator=(const DefaultContextLoop&) = delete;

    // Makes the loop and runs it until Stop, on the calling thread. Once.
    void Run();

    // Ends Run and returns when it is over; also when Run is still to come. A dispatch that is
    // under way on the loop's thread is waited for. Not from the loop's own thread.
    void Stop();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    GMainLoop* m_loop = nullptr;  // guarded by m_mutex; while Run runs
    bool m_stopping = false;      // guarded by m_mutex
    bool m_over = false;          // guarded by m_mutex
};

}  // namespace dorn

#endif
