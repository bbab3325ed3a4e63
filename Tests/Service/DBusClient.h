// A client of the service as tests use it: blocking calls, events that can be waited for.
#ifndef TESTS_SERVICE_DBUS_CLIENT_H
#define TESTS_SERVICE_DBUS_CLIENT_H

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Support/Basics.h"

namespace test {

struct Event {
    int handle;
    int kind;
    std::string name;
    std::string payload;
};

struct Answer {
    std::string error;  // the D-Bus error's name, empty for success
    std::string text;   // its text
    bool handled = false;
    std::string value;
};

// The connection is read on a thread of its own; all operations may be called from any thread.
class DBusClient {
public:
    // Connects to a private socket. Throws std::runtime_error when nobody answers there.
    explicit DBusClient(const std::string& socketPath);
    ~DBusClient();
    DBusClient(const DBusClient&) = delete;
    DBusClient& operator=(const DBusClient&) = delete;

    int Open(const std::string& name = "test");  // -1 for an error
    Answer TryOpen(const std::string& name = "test", const char* method = "Open");
    int OpenLasting();  // -1 for an error
    Answer Execute(int handle, const std::string& command, const std::string& arg1 = "",
                   const std::string& arg2 = "", const std::string& arg3 = "",
                   const std::string& arg4 = "");
    Answer ExecuteWithParamList(int handle, const std::string& command,
                                const std::vector<std::string>& params);
    std::string Close(int handle);  // the error's name, empty for success

    // Sends the command and does not wait for its answer, which is dropped.
    void Send(int handle, const std::string& command, const std::string& arg1 = "",
              const std::string& arg2 = "", const std::string& arg3 = "",
              const std::string& arg4 = "");

    // The first event not yet taken that `fits`; nothing when the deadline passes.
    std::optional<Event> Wait(const std::function<bool(const Event&)>& fits,
                              std::chrono::seconds deadline = kDeadline);
    std::optional<Event> Wait(const std::string& name, std::chrono::seconds deadline = kDeadline);
    std::vector<Event> TakeAll();
    size_t EventsSeen();

    bool WaitUntilDisconnected(std::chrono::seconds deadline = kDeadline);
    bool IsConnected();
    GDBusConnection* Connection() const { return m_connection; }

private:
    static void s_Signal(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                         GVariant* parameters, gpointer self);
    static void s_Closed(GDBusConnection*, gboolean, GError*, gpointer self);
    Answer Call(const char* method, GVariant* parameters,
                const std::function<void(GVariant*, Answer&)>& read);

    GMainContext* m_context;
    GMainLoop* m_loop;
    GDBusConnection* m_connection = nullptr;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Event> m_events;  // these are guarded by m_mutex
    size_t m_seen = 0;
    bool m_closed = false;
    std::thread m_thread;
};

}  // namespace test

#endif
