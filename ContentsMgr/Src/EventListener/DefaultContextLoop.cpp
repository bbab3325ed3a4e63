#include "DefaultContextLoop.h"

#include <chrono>

namespace dorn {

void DefaultContextLoop::Run() {
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    bool stopping = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_loop = loop;
        stopping = m_stopping;
    }
    if (!stopping) g_main_loop_run(loop);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_loop = nullptr;
    g_main_loop_unref(loop);
    m_over = true;
    m_changed.notify_all();
}

// A quit before the loop runs is lost, and its state cannot be seen from outside: so the quit is
// repeated until the loop has ended. Only then is more than one attempt needed.
void DefaultContextLoop::Stop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_stopping = true;
    while (!m_over) {
        if (m_loop) g_main_loop_quit(m_loop);
        m_changed.wait_for(lock, std::chrono::milliseconds(2), [this] { return m_over; });
    }
}

}  // namespace dorn
