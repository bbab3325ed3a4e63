// What the service has under way on the storages, and the threads that run it.
#ifndef PLATFORM_MEDIA_CONTENT_ACTIVITY_H
#define PLATFORM_MEDIA_CONTENT_ACTIVITY_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "MediaContent/Mount.h"
#include "Process/ThreadCrew.h"

namespace platform {

// One piece of work that may hold files of a storage open.
struct Activity {
    std::shared_ptr<Mount> mount;
    bool full = false;                // a scan of the whole storage
    std::atomic<bool> cancel{false};  // asks it to end soon
    std::atomic<uint64_t> filesSeen{0};
    std::atomic<uint64_t> filesRead{0};
    std::atomic<bool> walking{false};
    std::atomic<bool> again{false};  // the storage is to be scanned whole once this has ended
};
using ActivityPtr = std::shared_ptr<Activity>;

// Runs activities on a few threads: whole scans of different storages side by side, the short ones
// of a storage in order and never behind a whole scan. Any thread.
class ActivityQueue : private ThreadCrew {
public:
    using Test = std::function<bool(const Activity&)>;

    ActivityQueue();
    ~ActivityQueue() { Stop(); }

    // Throws std::system_error, and takes nothing on, when there is no thread and none can be made.
    // Otherwise `run` is called exactly once, also after the activity was cancelled. What is
    // submitted or entered for a storage that is gone is cancelled from the start.
    void Submit(ActivityPtr activity, std::function<void()> run);
    // True when such an activity waits for its turn.
    bool IsQueued(const Test& test);
    // Counts an activity that the calling thread runs by itself, until Leave.
    void Enter(const ActivityPtr& activity);
    void Leave(const ActivityPtr& activity);

    void Cancel(const Test& test);
    // Returns when no such activity is queued or running any more. Not from inside an activity.
    void Wait(const Test& test);
    std::vector<ActivityPtr> List();
    // Cancels everything, waits for it and joins the threads. Submit starts them again.
    void Stop();

private:
    struct Job {
        ActivityPtr activity;
        std::function<void()> run;
    };
    using Jobs = std::deque<Job>;
    bool HasTask() const override { return Next() != m_queue.end(); }
    Task TakeTask() override;
    Jobs::const_iterator Next() const;
    bool MayRun(const Activity& activity) const;
    bool HasAny(const Test& test) const;

    Jobs m_queue;                        // guarded by m_mutex, as the next
    std::vector<ActivityPtr> m_running;  // entered ones included
};

// A counted activity that ends with the scope.
class EnteredActivity {
public:
    EnteredActivity(ActivityQueue& queue, ActivityPtr activity)
        : m_queue(queue), m_activity(std::move(activity)) {
        m_queue.Enter(m_activity);
    }
    ~EnteredActivity() { m_queue.Leave(m_activity); }
    EnteredActivity(const EnteredActivity&) = delete;
    EnteredActivity& operator=(const EnteredActivity&) = delete;
    const std::atomic<bool>& Cancelled() const { return m_activity->cancel; }

private:
    ActivityQueue& m_queue;
    ActivityPtr m_activity;
};

}  // namespace platform

#endif
