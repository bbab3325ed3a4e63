#include "Process/ContextQueue.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

// After this many, the context's other sources get their turn.
constexpr int kTasksATurn = 64;
constexpr gint64 kTurnUs = 10000;

}  // namespace

ContextQueue& ContextQueue::Default() {
    static ContextQueue* queue = new ContextQueue(nullptr);
    return *queue;
}

void ContextQueue::Post(Task task, const std::string& key) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!key.empty()) {
        const auto same = [&](const Entry& entry) { return entry.key == key; };
        m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(), same), m_entries.end());
    }
    m_entries.push_back({key, std::move(task)});
    if (std::exchange(m_attached, true)) return;
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, s_Run, this, nullptr);
    g_source_attach(source, m_context);
    g_source_unref(source);
}

gboolean ContextQueue::s_Run(gpointer queue) {
    auto* self = static_cast<ContextQueue*>(queue);
    const gint64 end = g_get_monotonic_time() + kTurnUs;
    for (int count = 0; count < kTasksATurn && g_get_monotonic_time() < end; ++count)
        if (!self->RunNext()) return G_SOURCE_REMOVE;
    return G_SOURCE_CONTINUE;
}

// False when the queue was empty: the next Post attaches a new source.
bool ContextQueue::RunNext() {
    Task task;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_attached = !m_entries.empty();
        if (!m_attached) return false;
        task = std::move(m_entries.front().task);
        m_entries.pop_front();
    }
    task();
    return true;
}

}  // namespace platform
