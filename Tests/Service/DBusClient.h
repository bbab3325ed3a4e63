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
#include <vector>

#include "PlivHost/GlibPtr.h"
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

// All operations may be called from any thread.
class DBusClient {
public:
    // Connects to a private socket. Throws std::runtime_error when nobody answers there.
    explicit DBusClient(const std::string& socketPath);
    ~DBusClient();
    DBusClient(const DBusClient&) = delete;
    DBusClient& operator=(const DBusClient&) = delete;

    int Open(const std::string& name = "test", const char* method = "Open");  // -1 for an error
    Answer TryOpen(const std::string& name = "test", const char* method = "Open");
    int OpenLasting() { return Open("test", "OpenLasting"); }
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

    bool WaitUntilDisconnected() {
        return Until([this] { return !IsConnected(); });
    }
    bool IsConnected() { return !g_dbus_connection_is_closed(m_connection.get()); }

private:
    struct Inbox;
    static GDBusMessage* s_Filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                  gpointer inbox);
    Answer Call(const char* method, GVariant* parameters,
                const std::function<void(GVariant*, Answer&)>& read);

    const std::shared_ptr<Inbox> m_inbox;
    platform::ObjectPtr<GDBusConnection> m_connection;
    guint m_filter = 0;
};

}  // namespace test

#endif
