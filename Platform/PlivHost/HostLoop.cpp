#include "PlivHost/HostLoop.h"

#include <utility>

namespace platform {

HostLoop::HostLoop()
    : m_context(g_main_context_new()), m_loop(g_main_loop_new(m_context.get(), FALSE)) {
    g_main_context_push_thread_default(m_context.get());
}

HostLoop::~HostLoop() {
    g_main_context_pop_thread_default(m_context.get());
}

void HostLoop::Run() {
    g_main_loop_run(m_loop.get());
}

// Through the queue, because a quit that reaches a loop before it runs would be lost.
void HostLoop::Quit() {
    Post([this] { g_main_loop_quit(m_loop.get()); });
}

void HostLoop::Post(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_tasks.push_back(std::move(task));
        if (m_tasks.size() > 1) return;  // a source is on its way already
    }
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, s_RunTasks, this, nullptr);
    g_source_attach(source, m_context.get());
    g_source_unref(source);
}

gboolean HostLoop::s_RunTasks(gpointer self) {
    auto* loop = static_cast<HostLoop*>(self);
    std::vector<std::function<void()>> tasks;
    {
        std::lock_guard<std::mutex> lock(loop->m_mutex);
        tasks.swap(loop->m_tasks);
    }
    for (const auto& task : tasks) task();
    return G_SOURCE_REMOVE;
}

void HostLoop::Drain() {
    while (g_main_context_iteration(m_context.get(), FALSE)) {
    }
}

}  // namespace platform
