// What the service has under way on the storages, and the threads that run it.
#ifndef PLATFORM_MEDIA_CONTENT_ACTIVITY_H
#define PLATFORM_MEDIA_CONTENT_ACTIVITY_H

#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
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
    std::atomic<bool> hasPassedOver{false};  // files that were: see ItemState

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
    std::atomic<bool> again{false};  // the storage is to be scanned whole once this has ended
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

// Threads for work that can be done side by side. Work comes in lanes: one for each scan, one for
// what clients ask for on a storage. Lanes take turns. They share `threads` threads, but a lane of
// which nothing runs gets another one rather than wait for work of other lanes. Any thread.
class WorkerPool {
public:
    using Lane = const void*;  // only compared: the address of whom the work is for

    explicit WorkerPool(size_t threads) : m_shared(threads) {}
    // Runs what is queued, then joins.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;
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
        std::deque<std::function<void()>> tasks;
    };
    using Lines = std::list<Line>;

    void Main();
    Lines::iterator FindLine(Lane lane);
    Lines::iterator NextLine();
    bool IsEmpty() const;
    void AddThreadIfNeeded();

    const size_t m_shared;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    Lines m_lines;  // guarded by m_mutex, as all below; in the order of their turns
    std::vector<std::thread> m_threads;
    size_t m_idle = 0;
    bool m_stopping = false;
};

}  // namespace platform

#endif
