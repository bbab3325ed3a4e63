// The service's running and queued work on storages, and the threads that run it.
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
    std::atomic<bool> cancel{false};  // asks it to stop soon
    std::atomic<uint64_t> filesSeen{0};
    std::atomic<uint64_t> filesRead{0};
    std::atomic<bool> walking{false};
    std::atomic<bool> again{false};  // scan the whole storage once this has ended
};
using ActivityPtr = std::shared_ptr<Activity>;

// Runs activities on a few threads: full scans of different storages in parallel; the short
// activities of one storage in order and never behind a full scan. Thread-safe.
class ActivityQueue : private ThreadCrew {
public:
    using Test = std::function<bool(const Activity&)>;

    ActivityQueue();
    ~ActivityQueue() { Stop(); }

    // Throws std::system_error, and accepts nothing, when no thread exists and none can be started.
    // Otherwise `run` is called exactly once, even after the activity was cancelled. An activity
    // submitted or entered for an unmounted storage is cancelled from the start.
    void Submit(ActivityPtr activity, std::function<void()> run);
    // True when a matching activity is queued.
    bool IsQueued(const Test& test);
    // Counts an activity that the calling thread runs itself, until Leave.
    void Enter(const ActivityPtr& activity);
    void Leave(const ActivityPtr& activity);

    void Cancel(const Test& test);
    // Returns once no matching activity is queued or running. Not from inside an activity.
    void Wait(const Test& test);
    std::vector<ActivityPtr> List();
    // Cancels everything, waits for it and joins the threads. The next Submit starts threads again.
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

    Jobs m_queue;                        // guarded by m_mutex, like m_running
    std::vector<ActivityPtr> m_running;  // including entered ones
};

// Enters an activity and leaves it at the end of the scope.
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
