#include "PlivHost/Server.h"

#include <glib-unix.h>
#include <signal.h>

#include "Log/Log.h"
#include "PlivHost/BusTransport.h"
#include "PlivHost/Names.h"
#include "PlivHost/SocketTransport.h"

namespace platform {
namespace {

std::unique_ptr<Transport> NewTransport(const TransportParts& parts, const ServerOptions& options) {
    switch (options.bus) {
        case BusKind::Session:
            return std::make_unique<BusTransport>(parts, G_BUS_TYPE_SESSION);
        case BusKind::System:
            return std::make_unique<BusTransport>(parts, G_BUS_TYPE_SYSTEM);
        case BusKind::None:
            break;
    }
    return std::make_unique<SocketTransport>(parts, options.socketPath);
}

// On the system bus clients belong to different users, so handles shared by all are not allowed.
HandleLimits LimitsFor(const ServerOptions& options) {
    HandleLimits limits = options.handles;
    if (options.bus == BusKind::System) limits.lasting = 0;
    return limits;
}

}  // namespace

Server::Server(dorn::CPlivAppBase& app, const ServerOptions& options)
    : m_pool(std::make_shared<Pool>(options.poolBytes)),
      m_handles(app, m_loop, LimitsFor(options), m_pool),
      m_interface(m_handles, options.scans) {
    const TransportParts parts{m_loop,         m_handles, m_interface,
                               options.outbox, m_pool,    options.maxConnections};
    m_transport = NewTransport(parts, options);
}

// Engines first: until they are destroyed they may send, and their clients may still receive.
Server::~Server() {
    m_handles.CloseAll();
    m_transport.reset();
    m_loop.Drain();
}

bool Server::Run() {
    m_loop.Run();
    const char* failure = m_transport->Failure();
    if (failure) PLATFORM_LOG(kLogTag, LOG_ERROR, "%s", failure);
    return !failure;
}

void Server::QuitOnSignals() {
    for (const int number : {SIGINT, SIGTERM}) {
        SourcePtr source(g_unix_signal_source_new(number));
        g_source_set_callback(source.get(), s_Signal, this, nullptr);
        g_source_attach(source.get(), m_loop.Context());
        m_signals.push_back(std::move(source));
    }
}

gboolean Server::s_Signal(gpointer self) {
    static_cast<Server*>(self)->Quit();
    return G_SOURCE_CONTINUE;
}

}  // namespace platform
