#include "PlivHost/HostLoop.h"

#include <gio/gunixconnection.h>
#include <gio/gunixcredentialsmessage.h>
#include <gio/gunixfdlist.h>
#include <gio/gunixsocketaddress.h>

#include <utility>

namespace platform {
namespace {

// GLib deadlocks when two threads initialise classes for the first time that need each other, as
// the worker threads of a first connection and another user of GIO may. Done here, they are ready.
void InitialiseClasses() {
    for (const GType type :
         {G_TYPE_TASK, G_TYPE_CANCELLABLE, G_TYPE_CREDENTIALS, G_TYPE_SOCKET,
          G_TYPE_SOCKET_CONNECTION, G_TYPE_SOCKET_SERVICE, G_TYPE_UNIX_CONNECTION,
          G_TYPE_UNIX_SOCKET_ADDRESS, G_TYPE_UNIX_CREDENTIALS_MESSAGE, G_TYPE_UNIX_FD_LIST,
          G_TYPE_DATA_INPUT_STREAM, G_TYPE_DATA_OUTPUT_STREAM, G_TYPE_DBUS_AUTH_OBSERVER,
          G_TYPE_DBUS_CONNECTION, G_TYPE_DBUS_MESSAGE, G_TYPE_DBUS_METHOD_INVOCATION})
        g_type_class_ref(type);  // kept for the life of the process
}

}  // namespace

HostLoop::HostLoop()
    : m_context(g_main_context_new()), m_loop(g_main_loop_new(m_context.get(), FALSE)) {
    InitialiseClasses();
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
