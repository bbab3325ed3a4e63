#include "Process/ThreadCrew.h"

#include <pthread.h>

#include <system_error>
#include <utility>

namespace platform {

std::thread StartThread(const std::string& name, std::function<void()> body) {
    return std::thread([name = name.substr(0, 15), body = std::move(body)] {
        pthread_setname_np(pthread_self(), name.c_str());
        body();
    });
}

bool ThreadCrew::NoteChange() {
    m_changed.notify_all();
    if (m_stopping) return true;
    try {
        if (m_idle == 0 && m_threads.size() < m_most && HasTask())
            m_threads.push_back(StartThread(m_name, [this] { Main(); }));
    } catch (const std::system_error&) {
        // Continue with fewer threads.
    }
    return !m_threads.empty();
}

void ThreadCrew::Main() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        ++m_idle;
        m_changed.wait(lock, [this] { return m_stopping || HasTask(); });
        --m_idle;
        if (!HasTask()) return;
        Task task = TakeTask();
        NoteChange();  // there may be another task for another thread
        lock.unlock();
        task();
        task = nullptr;  // may hold the last reference to something expensive; not to be released
                         // under the mutex
        lock.lock();
    }
}

void ThreadCrew::Stop() {
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
    NoteChange();  // for tasks that arrived after the last thread had checked
}

}  // namespace platform
