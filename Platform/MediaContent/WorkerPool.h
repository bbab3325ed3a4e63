// The threads that read metadata.
#ifndef PLATFORM_MEDIA_CONTENT_WORKER_POOL_H
#define PLATFORM_MEDIA_CONTENT_WORKER_POOL_H

#include <cstddef>
#include <deque>
#include <functional>
#include <list>

#include "Process/ThreadCrew.h"

namespace platform {

// A thread pool with lanes: one for each scan, one for client requests on a storage. Lanes take
// turns. They share `threads` threads, but a lane with nothing running gets an extra thread rather
// than wait for other lanes. Thread-safe.
class WorkerPool : private ThreadCrew {
public:
    using Lane = const void*;  // an opaque key: the address of the object that the work is for

    explicit WorkerPool(size_t threads);
    // Runs what is queued, then joins.
    ~WorkerPool() { Stop(); }
    // Runs the task on the calling thread when no thread is available.
    void Submit(Lane lane, std::function<void()> task);
    // Marks a lane whose work is slow regardless of load. Until the lane is empty it has one thread
    // at a time, which is not one of the shared ones.
    void SetSlow(Lane lane);

private:
    struct Line {
        Lane lane;
        bool slow = false;
        size_t running = 0;
        std::deque<Task> tasks;
    };
    using Lines = std::list<Line>;

    bool HasTask() const override { return Next() != m_lines.end(); }
    Task TakeTask() override;
    Lines::const_iterator Next() const;
    Lines::iterator FindLine(Lane lane);
    void EndTask(Lines::iterator line);

    const size_t m_shared;
    Lines m_lines;  // guarded by m_mutex; in the order of their turns
};

}  // namespace platform

#endif
