// One open engine of the service, as seen by a client program.
#ifndef TOOLS_CONTENTSCTL_SESSION_H
#define TOOLS_CONTENTSCTL_SESSION_H

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "Options.h"
#include "PlivHost/GlibPtr.h"

namespace contentsctl {

struct Event {
    int kind;
    std::string name;
    std::string payload;
};

struct Scan {
    std::string storageId;
    std::string mountPath;
    uint64_t filesSeen;
    uint64_t filesRead;
    bool walking;
};

// Single-threaded: events arrive while Execute, Wait or Listen runs. All functions throw Misused
// when there is no service and Refused when it replies with an error or goes away.
class Session {
public:
    explicit Session(const Options& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Runs one command; at most four arguments are sent. Throws if the service did not handle the
    // command; otherwise returns its value.
    std::string Execute(const std::string& command, const std::vector<std::string>& arguments = {});
    // The same, but returns whether the command was handled.
    bool TryExecute(const std::string& command, const std::vector<std::string>& arguments,
                    std::string& value);

    // Sends "Connect", which every session that asks for media needs.
    void Connect();

    // The first event not yet taken for which `fits` is true. `tick`, if given, is called about
    // four times a second meanwhile. Throws Refused after the time limit in the options.
    Event Wait(const std::function<bool(const Event&)>& fits,
               const std::function<void()>& tick = nullptr);
    Event Wait(const std::string& name, const std::function<void()>& tick = nullptr);

    // Passes on every event as it arrives, until SIGINT or SIGTERM.
    void Listen(const std::function<void(const Event&)>& handler);

    std::vector<Scan> Scans();

private:
    static void s_Event(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                        GVariant* parameters, gpointer self);
    void OpenHandle();
    platform::VariantPtr Call(const char* method, GVariant* parameters, const char* resultType);
    void CheckConnection() const;

    const Options& m_options;
    platform::ObjectPtr<GDBusConnection> m_connection;
    int m_handle = 0;
    std::deque<Event> m_events;
};

}  // namespace contentsctl

#endif
