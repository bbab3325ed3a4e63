// Threads: one with a name, and crews that work off a queue.
#ifndef PLATFORM_PROCESS_THREAD_CREW_H
#define PLATFORM_PROCESS_THREAD_CREW_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace platform {

// `name`: at most 15 bytes are kept. Throws std::system_error when no thread can be had.
std::thread StartThread(const std::string& name, std::function<void()> body);

// The base of a queue whose tasks run on threads of its own, which are made when they are needed
// and kept until Stop. The derived class says what may run next.
class ThreadCrew {
public:
    ThreadCrew(const ThreadCrew&) = delete;
    ThreadCrew& operator=(const ThreadCrew&) = delete;

protected:
    using Task = std::function<void()>;

    // `most`: threads at a time.
    ThreadCrew(std::string name, size_t most) : m_name(std::move(name)), m_most(most) {}
    // The derived destructor has called Stop.
    virtual ~ThreadCrew() = default;

    // With the mutex held: whether a task may run now, and that task, taken out of the queue. It
    // runs once, without the mutex, also when the crew is stopping.
    virtual bool HasTask() const = 0;
    virtual Task TakeTask() = 0;

    // With the mutex held, whenever the queue has changed or a task has ended. False: there is no
    // thread, and none can be made.
    bool NoteChange();

    // Joins the threads when nothing is left that may run. NoteChange makes new ones.
    void Stop();

    mutable std::mutex m_mutex;         // the derived class's queue is guarded by it, too
    std::condition_variable m_changed;  // NoteChange was called

private:
    void Main();

    const std::string m_name;
    const size_t m_most;
    std::vector<std::thread> m_threads;  // guarded by m_mutex, as all below
    size_t m_idle = 0;
    bool m_stopping = false;
};

}  // namespace platform

#endif
