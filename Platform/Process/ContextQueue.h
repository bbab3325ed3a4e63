// Work for whichever thread runs a GLib main context.
#ifndef PLATFORM_PROCESS_CONTEXT_QUEUE_H
#define PLATFORM_PROCESS_CONTEXT_QUEUE_H

#include <glib.h>

#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace platform {

// Thread-safe. Tasks run one at a time, in the order in which they were posted, without a lock.
class ContextQueue {
public:
    using Task = std::function<void()>;

    // `context`: null for the default one. The queue must live as long as anybody runs the context.
    explicit ContextQueue(GMainContext* context) : m_context(context) {}
    ContextQueue(const ContextQueue&) = delete;
    ContextQueue& operator=(const ContextQueue&) = delete;

    // The queue of the default context. Never destroyed.
    static ContextQueue& Default();

    // `task` runs soon, never inside the call, and not at all when nobody runs the context any
    // more. With a `key` it replaces a task still waiting under that key and goes to the end of the
    // queue.
    void Post(Task task, const std::string& key = {});

private:
    struct Entry {
        std::string key;
        Task task;
    };
    static gboolean s_Run(gpointer queue);
    bool RunNext();

    GMainContext* const m_context;
    std::mutex m_mutex;
    std::deque<Entry> m_entries;  // guarded by m_mutex, like m_attached
    bool m_attached = false;      // a source is attached that will empty the queue
};

}  // namespace platform

#endif
