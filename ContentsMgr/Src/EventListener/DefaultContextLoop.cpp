#include "DefaultContextLoop.h"

#include <chrono>

namespace dorn {

DefaultContextLoop::DefaultContextLoop() : m_loop(g_main_loop_new(nullptr, FALSE)) {}

DefaultContextLoop::~DefaultContextLoop() {
    g_main_loop_unref(m_loop);
}

void DefaultContextLoop::Run() {
    bool stopping = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        stopping = m_stopping;
    }
    if (!stopping) g_main_loop_run(m_loop);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_over = true;
    m_changed.notify_all();
}

// A quit that comes before the loop runs is lost, and nothing tells from outside when it runs: so
// it is repeated until the loop is over. More than one turn is needed only in that moment.
void DefaultContextLoop::Stop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_stopping = true;
    while (!m_over) {
        g_main_loop_quit(m_loop);
        m_changed.wait_for(lock, std::chrono::milliseconds(2), [this] { return m_over; });
    }
}

}  // namespace dorn
