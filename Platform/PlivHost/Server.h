// The service: makes an application object available to clients.
#ifndef PLATFORM_PLIV_HOST_SERVER_H
#define PLATFORM_PLIV_HOST_SERVER_H

#include <memory>
#include <string>
#include <vector>

#include "PlivHost/HandleTable.h"
#include "PlivHost/HostLoop.h"
#include "PlivHost/Interface.h"
#include "PlivHost/Transport.h"

namespace platform {

enum class BusKind { None, Session, System };

struct ServerOptions {
    BusKind bus = BusKind::None;
    std::string socketPath;  // for BusKind::None
    HandleLimits handles;
    OutboxLimits outbox;
    // The limit for what the service holds for all clients together. A single client may use a
    // third of it (64 MiB): 100,000 unread events of typical size, or a page of 100,000 items.
    size_t poolBytes = size_t{192} << 20;
    size_t maxConnections = 128;
    ScanReporter scans = [] { return std::vector<ScanProgress>{}; };
};

// Created, run and destroyed on one thread, the host thread. Accepts clients once constructed;
// calls are answered while Run runs.
class Server {
public:
    // Throws std::runtime_error with a user-readable text when it cannot serve.
    Server(dorn::CPlivAppBase& app, const ServerOptions& options);

    // Destroys the open engines, each after its running command, then disconnects.
    ~Server();

    // Serves until Quit, SIGINT or SIGTERM and returns true; false, with a log line, when serving
    // failed.
    bool Run();
    void Quit() { m_loop.Quit(); }  // any thread, even before Run

    // Makes SIGINT and SIGTERM end Run for the lifetime of the object.
    void QuitOnSignals();

private:
    static gboolean s_Signal(gpointer self);

    HostLoop m_loop;
    const std::shared_ptr<Pool> m_pool;
    HandleTable m_handles;
    Interface m_interface;
    std::vector<SourcePtr> m_signals;
    std::unique_ptr<Transport> m_transport;
};

}  // namespace platform

#endif
