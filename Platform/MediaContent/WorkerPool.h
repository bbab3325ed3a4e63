// The threads that read metadata.
#ifndef PLATFORM_MEDIA_CONTENT_WORKER_POOL_H
#define PLATFORM_MEDIA_CONTENT_WORKER_POOL_H

#include <cstddef>
#include <deque>
#include <functional>
#include <list>

#include "Process/ThreadCrew.h"

namespace platform {

// Threads for work that can be done side by side. Work comes in lanes: one for each scan, one for
// what clients ask for on a storage. Lanes take turns. They share `threads` threads, but a lane of
// which nothing runs gets another one rather than wait for work of other lanes. Any thread.
class WorkerPool : private ThreadCrew {
public:
    using Lane = const void*;  // only compared: the address of whom the work is for

    explicit WorkerPool(size_t threads);
    // Runs what is queued, then joins.
    ~WorkerPool() { Stop(); }
    // On the calling thread when no other one can be had.
    void Submit(Lane lane, std::function<void()> task);
    // The lane's work takes long whatever else runs. Until the lane is empty it has one thread at a
    // time, which is none of the shared ones.
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
