// A thread that does one thing after another for others and outlives what it starts: helpers are
// told to die with the thread that started them.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_SPAWN_THREAD_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_SPAWN_THREAD_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

namespace platform {

class SpawnThread {
public:
    SpawnThread() : m_thread([this] { Work(); }) {}
    ~SpawnThread() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_ending = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    SpawnThread(const SpawnThread&) = delete;
    SpawnThread& operator=(const SpawnThread&) = delete;

    // Runs `work` on the thread and returns when it is done. Any thread, not from `work` itself.
    template <typename T>
    T Run(std::function<T()> work) {
        std::packaged_task<T()> task(std::move(work));
        std::future<T> result = task.get_future();
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_tasks.emplace_back([&task] { task(); });
        }
        m_wake.notify_one();
        return result.get();
    }

private:
    void Work() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_ending || !m_tasks.empty(); });
            if (m_tasks.empty()) return;
            const std::function<void()> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_tasks;
    bool m_ending = false;
    std::thread m_thread;  // last: it uses the others
};

}  // namespace platform

#endif
