// What the service has under way on the storages, and the threads that run it.
#ifndef PLATFORM_MEDIA_CONTENT_ACTIVITY_H
#define PLATFORM_MEDIA_CONTENT_ACTIVITY_H

#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "MediaContent.h"

namespace platform {

// One storage from its mount to its unmount.
struct Mount {
    std::string path;                // as it was told, without a slash at the end
    std::string realPath;            // the same without links
    std::string identity;            // what it is known by
    struct stat root {};             // what was there when it came; all 0 when nothing was
    std::string id;                  // as clients see it
    std::string name;                // for the log
    bool isNews = true;              // for the log: it was not there when somebody last looked
    std::atomic<int64_t> number{0};  // in the database that is open; 0 while none is
    std::atomic<bool> gone{false};   // unmounted: nothing of it may be opened any more
    std::atomic<int> scanStatus{MEDIA_STORAGE_SCAN_STOPPED};

    // Guarded by the service's mutex: whether others know of it, and a scan's end that waits.
    bool announced = true;
    bool endIsHeld = false;
    media_content_error_e heldError = MEDIA_CONTENT_ERROR_NONE;
};

// One piece of work that may hold files of a storage open.
struct Activity {
    std::shared_ptr<Mount> mount;
    bool full = false;                // a scan of the whole storage
    std::atomic<bool> cancel{false};  // asks it to end soon
    std::atomic<uint64_t> filesSeen{0};
    std::atomic<uint64_t> filesRead{0};
    std::atomic<bool> walking{false};
};
using ActivityPtr = std::shared_ptr<Activity>;

// Runs activities on a few threads, which are started when they are needed: whole scans of
// different storages side by side, the short ones of a storage in order and never behind a whole
// scan. Any thread.
class ActivityQueue {
public:
    using Test = std::function<bool(const Activity&)>;

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
    void Main();
    bool TakeJob(Job& job);
    bool MayRun(const Activity& activity) const;
    bool HasAny(const Test& test) const;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_queue;             // guarded by m_mutex, as all below
    std::vector<ActivityPtr> m_running;  // entered ones included
    std::vector<std::thread> m_threads;
    size_t m_idle = 0;
    bool m_stopping = false;
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

// A few threads for the work that can be done side by side. They start when they are needed.
class WorkerPool {
public:
    explicit WorkerPool(size_t threads) : m_limit(threads) {}
    // Runs what is queued, then joins.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;
    // On the calling thread when no other one can be had.
    void Submit(std::function<void()> task);

private:
    void Main();

    const size_t m_limit;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_tasks;  // guarded by m_mutex, as all below
    std::vector<std::thread> m_threads;
    size_t m_idle = 0;
    bool m_stopping = false;
};

}  // namespace platform

#endif
