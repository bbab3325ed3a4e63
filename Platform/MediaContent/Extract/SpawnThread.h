// A thread that runs tasks for others and outlives the helpers that it starts: a helper dies with
// the thread that started it.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_SPAWN_THREAD_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_SPAWN_THREAD_H

#include <deque>
#include <functional>
#include <future>
#include <system_error>

#include "Process/ThreadCrew.h"

namespace platform {

class SpawnThread : private ThreadCrew {
public:
    // Throws std::system_error when no thread can be started.
    SpawnThread() : ThreadCrew("media-spawner", 1) {
        Run<void>([] {});
    }
    ~SpawnThread() { Stop(); }

    // Runs `work` on the thread and returns when it is done. Any thread, but not from `work`
    // itself.
    template <typename T>
    T Run(std::function<T()> work) {
        std::packaged_task<T()> task(std::move(work));
        std::future<T> result = task.get_future();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_tasks.emplace_back([&task] { task(); });
            if (!NoteChange())
                throw std::system_error(
                    std::make_error_code(std::errc::resource_unavailable_try_again));
        }
        return result.get();
    }

private:
    bool HasTask() const override { return !m_tasks.empty(); }
    Task TakeTask() override {
        Task task = std::move(m_tasks.front());
        m_tasks.pop_front();
        return task;
    }

    std::deque<Task> m_tasks;  // guarded by m_mutex
};

}  // namespace platform

#endif
