#include "MediaContent/Activity.h"

#include <algorithm>
#include <system_error>

namespace platform {
namespace {

// A scan mostly waits, for its stick or for the workers, so this many threads cause no load, and
// several slow sticks still leave a thread for the next one.
constexpr size_t kMaxThreads = 32;
constexpr size_t kMaxFullScans = 24;  // the other threads are for short scans

void CancelIfGone(Activity& activity) {
    if (activity.mount && activity.mount->gone) activity.cancel = true;
}

}  // namespace

ActivityQueue::ActivityQueue() : ThreadCrew("media-scan", kMaxThreads) {}

void ActivityQueue::Submit(ActivityPtr activity, std::function<void()> run) {
    std::lock_guard<std::mutex> lock(m_mutex);
    CancelIfGone(*activity);
    m_queue.push_back({std::move(activity), std::move(run)});
    if (NoteChange()) return;
    m_queue.pop_back();
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

bool ActivityQueue::IsQueued(const Test& test) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_queue.begin(), m_queue.end(), [&](const Job& job) {
        return !job.activity->cancel && test(*job.activity);
    });
}

void ActivityQueue::Enter(const ActivityPtr& activity) {
    std::lock_guard<std::mutex> lock(m_mutex);
    CancelIfGone(*activity);
    m_running.push_back(activity);
}

void ActivityQueue::Leave(const ActivityPtr& activity) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_running.erase(std::find(m_running.begin(), m_running.end(), activity));
    NoteChange();
}

void ActivityQueue::Cancel(const Test& test) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Job& job : m_queue)
        if (test(*job.activity)) job.activity->cancel = true;
    for (const ActivityPtr& activity : m_running)
        if (test(*activity)) activity->cancel = true;
    NoteChange();  // cancelled activities may run at once
}

bool ActivityQueue::HasAny(const Test& test) const {
    return std::any_of(m_queue.begin(), m_queue.end(),
                       [&](const Job& job) { return test(*job.activity); }) ||
           std::any_of(m_running.begin(), m_running.end(),
                       [&](const ActivityPtr& activity) { return test(*activity); });
}

void ActivityQueue::Wait(const Test& test) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return !HasAny(test); });
}

std::vector<ActivityPtr> ActivityQueue::List() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<ActivityPtr> list = m_running;
    for (const Job& job : m_queue) list.push_back(job.activity);
    return list;
}

// A storage has at most one full scan and one short one at a time. A cancelled activity only has to
// report that it was cancelled and waits for nothing.
bool ActivityQueue::MayRun(const Activity& activity) const {
    if (activity.cancel) return true;
    size_t full = 0;
    for (const ActivityPtr& running : m_running) {
        if (running->mount == activity.mount && running->full == activity.full) return false;
        if (running->full) ++full;
    }
    return !activity.full || full < kMaxFullScans;
}

ActivityQueue::Jobs::const_iterator ActivityQueue::Next() const {
    return std::find_if(m_queue.begin(), m_queue.end(),
                        [this](const Job& waiting) { return MayRun(*waiting.activity); });
}

ThreadCrew::Task ActivityQueue::TakeTask() {
    const auto next = m_queue.erase(Next(), Next());  // the same position, but mutable
    Job job = std::move(*next);
    m_queue.erase(next);
    m_running.push_back(job.activity);
    return [this, job = std::move(job)]() mutable {
        job.run();
        job.run = nullptr;
        Leave(job.activity);
    };
}

void ActivityQueue::Stop() {
    Cancel([](const Activity&) { return true; });
    ThreadCrew::Stop();
}

}  // namespace platform
