#include "PlivHost/SocketTransport.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Log/Log.h"
#include "PlivHost/BusStub.h"
#include "PlivHost/CommandLane.h"
#include "PlivHost/Names.h"

namespace platform {
namespace {

constexpr guint kAuthenticationSeconds = 10;

constexpr auto kConnectionFlags =
    static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER |
                                      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER |
                                      G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING);

// The kernel vouches for the peer; the other mechanisms would only leave a key ring behind.
gboolean AllowMechanism(GDBusAuthObserver*, const gchar* mechanism, gpointer) {
    return g_strcmp0(mechanism, "EXTERNAL") == 0;
}

ObjectPtr<GDBusAuthObserver> NewObserver() {
    ObjectPtr<GDBusAuthObserver> observer(g_dbus_auth_observer_new());
    g_signal_connect(observer.get(), "allow-mechanism", G_CALLBACK(AllowMechanism), nullptr);
    return observer;
}

ObjectPtr<GSocket> SocketOf(UniqueFd file) {
    ObjectPtr<GSocket> socket(g_socket_new_from_fd(file.Get(), nullptr));
    if (socket) file.Release();
    return socket;
}

// GDBus makes its thread and that thread's main context for the first connection of the process,
// and ends the process when there is no descriptor left for the context. So there is a first
// connection now, to nobody; the thread stays.
void StartGDBusThread() {
    std::array<int, 2> ends;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::runtime_error(std::string("cannot make a pair of sockets: ") + strerror(errno));
    UniqueFd ours(ends[0]);
    const UniqueFd nobodys(ends[1]);
    ErrorSlot error;
    const ObjectPtr<GSocket> socket = SocketOf(std::move(ours));
    const ObjectPtr<GSocketConnection> stream(
        socket ? g_socket_connection_factory_create_connection(socket.get()) : nullptr);
    const ObjectPtr<GDBusConnection> connection(
        stream ? g_dbus_connection_new_sync(G_IO_STREAM(stream.get()), nullptr,
                                            G_DBUS_CONNECTION_FLAGS_NONE, nullptr, nullptr,
                                            error.Out())
               : nullptr);
    if (!connection) throw std::runtime_error("cannot start GDBus: " + error.Text());
}

}  // namespace

// One connection, from the moment it is accepted. Owned by the transport; while it is being
// authenticated GDBus knows it too, so it lives at least until that has ended.
class SocketTransport::Client {
public:
    Client(SocketTransport& transport, GSocketConnection* stream, unsigned long long number)
        : m_transport(transport), m_stream(Share(stream)), m_number(number) {}
    ~Client();

    void Authenticate();
    // Ends the connection from our side. Works on a peer that reads nothing, too.
    void Cut();
    bool IsAuthenticating() const { return m_authenticating; }

private:
    static void s_Authenticated(GObject* source, GAsyncResult* result, gpointer self);
    static gboolean s_TooLate(gpointer self);
    static void s_Closed(GDBusConnection* connection, gboolean vanished, GError* error,
                         gpointer self);
    void Serve();

    SocketTransport& m_transport;
    const ObjectPtr<GSocketConnection> m_stream;
    const unsigned long long m_number;
    bool m_authenticating = false;
    SourcePtr m_deadline;
    ObjectPtr<GDBusConnection> m_connection;
    gulong m_closedHandler = 0;
    std::shared_ptr<Peer> m_peer;
    std::unique_ptr<ExportedObject> m_stub;
    std::unique_ptr<CommandLane> m_lane;
    std::unique_ptr<ExportedObject> m_object;
};

// Without a cancellable, as a thread that waits with one opens a descriptor for it, and where there
// is none left GLib ends the process. Cut ends the wait by the socket itself.
void SocketTransport::Client::Authenticate() {
    m_authenticating = true;
    m_deadline.reset(g_timeout_source_new_seconds(kAuthenticationSeconds));
    g_source_set_callback(m_deadline.get(), s_TooLate, this, nullptr);
    g_source_attach(m_deadline.get(), m_transport.m_parts.loop.Context());
    g_dbus_connection_new(G_IO_STREAM(m_stream.get()), m_transport.m_guid.get(), kConnectionFlags,
                          NewObserver().get(), nullptr, s_Authenticated, this);
}

gboolean SocketTransport::Client::s_TooLate(gpointer self) {
    static_cast<Client*>(self)->Cut();
    return G_SOURCE_CONTINUE;
}

void SocketTransport::Client::Cut() {
    g_socket_shutdown(g_socket_connection_get_socket(m_stream.get()), TRUE, TRUE, nullptr);
}

void SocketTransport::Client::s_Authenticated(GObject*, GAsyncResult* result, gpointer data) {
    auto* self = static_cast<Client*>(data);
    self->m_authenticating = false;
    self->m_deadline.reset();
    ErrorSlot error;
    self->m_connection.reset(g_dbus_connection_new_finish(result, error.Out()));
    if (self->m_connection) {
        self->Serve();
        return;
    }
    PLATFORM_LOG(kLogTag, DLOG_PRIORITY_TRACE, "a client was not admitted: %s",
                 error.Text().c_str());
    self->m_transport.Drop(self->m_number);
}

void SocketTransport::Client::Serve() {
    const std::string name = ":1." + std::to_string(m_number);
    GDBusConnection* connection = m_connection.get();
    m_closedHandler = g_signal_connect(connection, "closed", G_CALLBACK(s_Closed), this);
    m_peer = std::make_shared<Peer>(m_transport.NewOutbox(connection, m_number), name);
    m_transport.m_parts.handles.Join(m_peer);
    m_stub = ExportBusStub(connection, name);
    Interface& object = m_transport.m_parts.object;
    m_lane = std::make_unique<CommandLane>(connection, object, m_peer);
    m_object = object.Export(
        connection, [this](const char*) { return m_peer; }, [this] { m_lane->NoteServed(); });
    if (!m_stub->IsThere() || !m_object->IsThere()) Cut();
    g_dbus_connection_start_message_processing(connection);
    // GDBus reads before it is told to start, so the end may have been announced to nobody.
    if (g_dbus_connection_is_closed(connection)) m_transport.Drop(m_number);  // the end of this
}

void SocketTransport::Client::s_Closed(GDBusConnection*, gboolean, GError*, gpointer self) {
    auto* client = static_cast<Client*>(self);
    client->m_transport.Drop(client->m_number);
}

SocketTransport::Client::~Client() {
    if (!m_connection) return;
    m_lane.reset();
    m_object.reset();
    m_stub.reset();
    g_signal_handler_disconnect(m_connection.get(), m_closedHandler);
    m_transport.m_parts.handles.CloseAllOf(*m_peer);
    m_peer->Messages()->Shut();
    Cut();
    g_dbus_connection_close(m_connection.get(), nullptr, nullptr, nullptr);
}

SocketTransport::SocketTransport(const TransportParts& parts, const std::string& path)
    : m_parts(parts), m_file(path), m_guid(g_dbus_generate_guid()) {
    StartGDBusThread();
    m_listener = std::make_unique<Listener>(m_parts.loop, m_file.Socket(),
                                            [this](GSocketConnection* stream) { Accept(stream); });
}

SocketTransport::~SocketTransport() {
    m_listener.reset();
    g_socket_close(m_file.Socket(), nullptr);
    for (const auto& entry : m_clients) entry.second->Cut();
    const auto authenticating = [this] {
        for (const auto& entry : m_clients)
            if (entry.second->IsAuthenticating()) return true;
        return false;
    };
    while (authenticating()) g_main_context_iteration(m_parts.loop.Context(), TRUE);
}

void SocketTransport::Accept(GSocketConnection* stream) {
    if (m_clients.size() >= m_parts.maxConnections) {
        PLATFORM_LOG(kLogTag, LOG_WARNING, "a client was turned away: %zu are connected",
                     m_clients.size());
        return;
    }
    const auto number = ++m_lastNumber;
    const auto made = m_clients.emplace(number, std::make_unique<Client>(*this, stream, number));
    made.first->second->Authenticate();
}

void SocketTransport::Drop(unsigned long long number) {
    m_clients.erase(number);
}

std::shared_ptr<Outbox> SocketTransport::NewOutbox(GDBusConnection* connection,
                                                   unsigned long long number) {
    // Runs on the thread that sent one event too many; the engines are gone before we are.
    const auto onOverflow = [this, number] {
        PLATFORM_LOG(kLogTag, LOG_WARNING,
                     "client :1.%llu does not read its messages, over %zu bytes wait: disconnected",
                     number, m_parts.outbox.waitingBytes);
        m_parts.loop.Post([this, number] {
            const auto found = m_clients.find(number);
            if (found != m_clients.end()) found->second->Cut();
        });
    };
    return Outbox::Create(connection, m_parts.outbox, kPrivateServiceName, onOverflow);
}

}  // namespace platform
