#include "MediaContent/WorkerPool.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace platform {

WorkerPool::WorkerPool(size_t threads)
    : ThreadCrew("media-worker", std::numeric_limits<size_t>::max()), m_shared(threads) {}

WorkerPool::Lines::iterator WorkerPool::FindLine(Lane lane) {
    return std::find_if(m_lines.begin(), m_lines.end(),
                        [lane](const Line& line) { return line.lane == lane; });
}

// The line whose first task may run now and which has waited longest for its turn.
WorkerPool::Lines::const_iterator WorkerPool::Next() const {
    size_t shared = 0;
    for (const Line& line : m_lines) shared += line.slow ? 0 : line.running;
    return std::find_if(m_lines.begin(), m_lines.end(), [&](const Line& line) {
        return !line.tasks.empty() && (line.running == 0 || (!line.slow && shared < m_shared));
    });
}

ThreadCrew::Task WorkerPool::TakeTask() {
    const auto line = m_lines.erase(Next(), Next());  // the same position, but mutable
    Task task = std::move(line->tasks.front());
    line->tasks.pop_front();
    ++line->running;
    m_lines.splice(m_lines.end(), m_lines, line);
    return [this, line, task = std::move(task)]() mutable {
        task();
        task = nullptr;
        EndTask(line);
    };
}

void WorkerPool::EndTask(Lines::iterator line) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (--line->running == 0 && line->tasks.empty()) m_lines.erase(line);
    NoteChange();
}

void WorkerPool::Submit(Lane lane, std::function<void()> task) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto line = FindLine(lane);
        if (line == m_lines.end()) line = m_lines.insert(line, Line{lane, false, 0, {}});
        line->tasks.push_back(std::move(task));
        if (NoteChange()) return;
        task = std::move(line->tasks.back());
        line->tasks.pop_back();
        if (line->tasks.empty() && line->running == 0) m_lines.erase(line);
    }
    task();
}

void WorkerPool::SetSlow(Lane lane) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto line = FindLine(lane);
    if (line == m_lines.end() || line->slow) return;
    line->slow = true;
    NoteChange();
}

}  // namespace platform
