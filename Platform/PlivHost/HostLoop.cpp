#include "PlivHost/HostLoop.h"

#include <gio/gunixconnection.h>
#include <gio/gunixcredentialsmessage.h>
#include <gio/gunixfdlist.h>
#include <gio/gunixsocketaddress.h>

namespace platform {
namespace {

// GLib deadlocks when two threads initialise interdependent classes for the first time, as the
// worker threads of a first connection and another user of GIO may. Initialising them here avoids
// that.
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
    : m_context(g_main_context_new()),
      m_loop(g_main_loop_new(m_context.get(), FALSE)),
      m_queue(m_context.get()) {
    InitialiseClasses();
    g_main_context_push_thread_default(m_context.get());
}

HostLoop::~HostLoop() {
    g_main_context_pop_thread_default(m_context.get());
}

void HostLoop::Run() {
    g_main_loop_run(m_loop.get());
}

// Goes through the queue, because a quit before the loop runs would be lost.
void HostLoop::Quit() {
    Post([this] { g_main_loop_quit(m_loop.get()); });
}

void HostLoop::Drain() {
    while (g_main_context_iteration(m_context.get(), FALSE)) {
    }
}

}  // namespace platform
