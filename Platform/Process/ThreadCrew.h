// Named threads, and thread pools that work off a queue.
#ifndef PLATFORM_PROCESS_THREAD_CREW_H
#define PLATFORM_PROCESS_THREAD_CREW_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace platform {

// `name`: at most 15 bytes are used. Throws std::system_error when no thread can be started.
std::thread StartThread(const std::string& name, std::function<void()> body);

// Base class of a queue whose tasks run on its own threads, which are started on demand and kept
// until Stop. The derived class decides which task may run next.
class ThreadCrew {
public:
    ThreadCrew(const ThreadCrew&) = delete;
    ThreadCrew& operator=(const ThreadCrew&) = delete;

protected:
    using Task = std::function<void()>;

    // `most`: the maximum number of threads.
    ThreadCrew(std::string name, size_t most) : m_name(std::move(name)), m_most(most) {}
    // The derived destructor must have called Stop.
    virtual ~ThreadCrew() = default;

    // Called with the mutex held: whether a task may run now, and that task, removed from the
    // queue. The task runs once, without the mutex, even if the crew is stopping.
    virtual bool HasTask() const = 0;
    virtual Task TakeTask() = 0;

    // Call with the mutex held whenever the queue has changed or a task has ended. False: there is
    // no thread, and none can be started.
    bool NoteChange();

    // Joins the threads once no runnable task is left. NoteChange starts new ones.
    void Stop();

    mutable std::mutex m_mutex;         // also guards the derived class's queue
    std::condition_variable m_changed;  // NoteChange was called

private:
    void Main();

    const std::string m_name;
    const size_t m_most;
    std::vector<std::thread> m_threads;  // guarded by m_mutex, as is everything below
    size_t m_idle = 0;
    bool m_stopping = false;
};

}  // namespace platform

#endif
