#include "MediaContent/Activity.h"

#include <algorithm>
#include <system_error>

namespace platform {
namespace {

// A scan mostly waits, for its stick or for the workers: so many threads are no load, and one slow
// stick after the other leaves one for the next.
constexpr size_t MAX_THREADS = 32;
constexpr size_t MAX_FULL_SCANS = 24;  // the other threads are for the short ones

void CancelIfGone(Activity& activity) {
    if (activity.mount && activity.mount->gone) activity.cancel = true;
}

}  // namespace

void ActivityQueue::Submit(ActivityPtr activity, std::function<void()> run) {
    std::lock_guard<std::mutex> lock(m_mutex);
    CancelIfGone(*activity);
    m_queue.push_back({std::move(activity), std::move(run)});
    try {
        if (m_idle < m_queue.size() && m_threads.size() < MAX_THREADS)
            m_threads.emplace_back([this] { Main(); });
    } catch (const std::system_error&) {
        if (m_threads.empty()) {
            m_queue.pop_back();
            throw;
        }
    }
    m_changed.notify_all();
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
    m_changed.notify_all();
}

void ActivityQueue::Cancel(const Test& test) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Job& job : m_queue)
        if (test(*job.activity)) job.activity->cancel = true;
    for (const ActivityPtr& activity : m_running)
        if (test(*activity)) activity->cancel = true;
    m_changed.notify_all();  // what is cancelled may run at once
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

// A storage has at most one whole scan and one short one at a time. What is cancelled only has to
// say so and waits for nothing.
bool ActivityQueue::MayRun(const Activity& activity) const {
    if (activity.cancel) return true;
    size_t full = 0;
    for (const ActivityPtr& running : m_running) {
        if (running->mount == activity.mount && running->full == activity.full) return false;
        if (running->full) ++full;
    }
    return !activity.full || full < MAX_FULL_SCANS;
}

bool ActivityQueue::TakeJob(Job& job) {
    const auto next = std::find_if(m_queue.begin(), m_queue.end(), [this](const Job& waiting) {
        return MayRun(*waiting.activity);
    });
    if (next == m_queue.end()) return false;
    job = std::move(*next);
    m_queue.erase(next);
    m_running.push_back(job.activity);
    return true;
}

void ActivityQueue::Main() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        Job job;
        ++m_idle;
        m_changed.wait(lock, [&] { return TakeJob(job) || (m_stopping && m_queue.empty()); });
        --m_idle;
        if (!job.activity) return;
        lock.unlock();
        job.run();
        job.run = nullptr;
        lock.lock();
        m_running.erase(std::find(m_running.begin(), m_running.end(), job.activity));
        m_changed.notify_all();
    }
}

void ActivityQueue::Stop() {
    Cancel([](const Activity&) { return true; });
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        threads.swap(m_threads);
        m_changed.notify_all();
    }
    for (std::thread& thread : threads) thread.join();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = false;
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        m_changed.notify_all();
    }
    for (std::thread& thread : m_threads) thread.join();
}

WorkerPool::Lines::iterator WorkerPool::FindLine(Lane lane) {
    return std::find_if(m_lines.begin(), m_lines.end(),
                        [lane](const Line& line) { return line.lane == lane; });
}

// The line whose first task may run now and has waited longest for its turn.
WorkerPool::Lines::iterator WorkerPool::NextLine() {
    size_t shared = 0;
    for (const Line& line : m_lines) shared += line.slow ? 0 : line.running;
    return std::find_if(m_lines.begin(), m_lines.end(), [&](const Line& line) {
        return !line.tasks.empty() && (line.running == 0 || (!line.slow && shared < m_shared));
    });
}

bool WorkerPool::IsEmpty() const {
    return std::all_of(m_lines.begin(), m_lines.end(),
                       [](const Line& line) { return line.tasks.empty(); });
}

void WorkerPool::AddThreadIfNeeded() {
    if (m_idle > 0 || NextLine() == m_lines.end()) return;
    try {
        m_threads.emplace_back([this] { Main(); });
    } catch (const std::system_error&) {
        // Fewer threads than hoped for; without any the caller does the work.
    }
}

void WorkerPool::Submit(Lane lane, std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto line = FindLine(lane);
        if (line == m_lines.end()) line = m_lines.insert(line, Line{lane, false, 0, {}});
        line->tasks.push_back(std::move(task));
        AddThreadIfNeeded();
        m_changed.notify_one();
        if (!m_threads.empty()) return;
        task = std::move(line->tasks.front());
        m_lines.erase(line);
    }
    task();
}

void WorkerPool::SetSlow(Lane lane) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto line = FindLine(lane);
    if (line == m_lines.end() || line->slow) return;
    line->slow = true;
    AddThreadIfNeeded();
    m_changed.notify_all();
}

void WorkerPool::Main() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        ++m_idle;
        m_changed.wait(lock,
                       [this] { return NextLine() != m_lines.end() || (m_stopping && IsEmpty()); });
        --m_idle;
        const auto line = NextLine();
        if (line == m_lines.end()) return;
        std::function<void()> task = std::move(line->tasks.front());
        line->tasks.pop_front();
        ++line->running;
        m_lines.splice(m_lines.end(), m_lines, line);
        AddThreadIfNeeded();
        lock.unlock();
        task();
        task = nullptr;  // may hold the last of what is dear; not to be let go of under the lock
        lock.lock();
        if (--line->running == 0 && line->tasks.empty()) m_lines.erase(line);
        if (m_stopping) m_changed.notify_all();
    }
}

}  // namespace platform
