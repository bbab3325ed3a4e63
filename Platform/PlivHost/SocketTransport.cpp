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
#include "PlivHost/Handshake.h"
#include "PlivHost/MessageStream.h"
#include "PlivHost/Names.h"

namespace platform {
namespace {

ObjectPtr<GSocket> SocketOf(UniqueFd file) {
    ObjectPtr<GSocket> socket(g_socket_new_from_fd(file.Get(), nullptr));
    if (socket) file.Release();
    return socket;
}

// GDBus creates its thread and that thread's main context for the first connection of the process,
// and aborts the process when there is no descriptor left for the context. So this makes a first
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

// One connection, from accept on. Owned by the transport.
class SocketTransport::Client {
public:
    Client(SocketTransport& transport, GSocketConnection* stream, unsigned long long number)
        : m_transport(transport), m_stream(Share(stream)), m_number(number) {}
    ~Client();

    void Authenticate();
    // Closes the connection from our side. Works even if the peer reads nothing.
    void Cut();

private:
    static void s_Closed(GDBusConnection* connection, gboolean vanished, GError* error,
                         gpointer self);
    GSocket* Socket() const { return g_socket_connection_get_socket(m_stream.get()); }
    bool Connect();
    void Serve();

    SocketTransport& m_transport;
    const ObjectPtr<GSocketConnection> m_stream;
    const unsigned long long m_number;
    const std::shared_ptr<LargeCalls> m_largeCalls = std::make_shared<LargeCalls>();
    std::unique_ptr<Handshake> m_handshake;
    ObjectPtr<GDBusConnection> m_connection;
    gulong m_closedHandler = 0;
    std::shared_ptr<Peer> m_peer;
    std::unique_ptr<ExportedObject> m_stub;
    std::unique_ptr<CommandLane> m_lane;
    std::unique_ptr<ExportedObject> m_object;
};

void SocketTransport::Client::Authenticate() {
    m_handshake = std::make_unique<Handshake>(
        m_transport.m_parts.loop, Socket(), m_transport.m_guid.get(), [this](bool admitted) {
            if (admitted && Connect())
                Serve();
            else
                m_transport.Drop(m_number);  // destroys this object
        });
}

// Authentication is already complete.
bool SocketTransport::Client::Connect() {
    const auto stream = NewMessageStream(Socket(), m_largeCalls);
    ErrorSlot error;
    m_connection.reset(g_dbus_connection_new_sync(stream.get(), nullptr,
                                                  G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING,
                                                  nullptr, nullptr, error.Out()));
    if (!m_connection) PLATFORM_LOG(kLogTag, LOG_ERROR, "no connection: %s", error.Text().c_str());
    return m_connection != nullptr;
}

void SocketTransport::Client::Cut() {
    g_socket_shutdown(Socket(), TRUE, TRUE, nullptr);
}

void SocketTransport::Client::Serve() {
    const std::string name = ":1." + std::to_string(m_number);
    GDBusConnection* connection = m_connection.get();
    m_closedHandler = g_signal_connect(connection, "closed", G_CALLBACK(s_Closed), this);
    const auto allowance = std::make_shared<Allowance>(m_transport.m_parts.pool);
    const auto outbox = m_transport.NewOutbox(connection, m_number, allowance);
    m_largeCalls->AnswerOn(outbox);
    m_peer = std::make_shared<Peer>(allowance, outbox, name);
    m_transport.m_parts.handles.Join(m_peer);
    m_stub = ExportBusStub(connection, name);
    Interface& object = m_transport.m_parts.object;
    m_lane = std::make_unique<CommandLane>(connection, object, m_peer);
    m_object = object.Export(
        connection, [this](const char*) { return m_peer; }, [this] { m_lane->NoteServed(); });
    if (!m_stub->IsThere() || !m_object->IsThere()) Cut();
    g_dbus_connection_start_message_processing(connection);
    // GDBus reads before it is told to start, so the closed signal may already have been emitted.
    if (g_dbus_connection_is_closed(connection)) m_transport.Drop(m_number);  // the end of this
}

void SocketTransport::Client::s_Closed(GDBusConnection*, gboolean, GError* error, gpointer self) {
    auto* client = static_cast<Client*>(self);
    PLATFORM_LOG(kLogTag, DLOG_PRIORITY_PROGRESS, "client :1.%llu is gone: %s", client->m_number,
                 error ? error->message : "closed here");
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
                                                   unsigned long long number,
                                                   const std::shared_ptr<Allowance>& allowance) {
    // Runs on the thread that posted one event too many; the engines are destroyed before this
    // object.
    const auto onOverflow = [this, number, allowance] {
        PLATFORM_LOG(kLogTag, LOG_WARNING,
                     "client :1.%llu does not read its messages: disconnected, %zu bytes are still "
                     "held for it",
                     number, allowance->Held());
        m_parts.loop.Post([this, number] {
            const auto found = m_clients.find(number);
            if (found != m_clients.end()) found->second->Cut();
        });
    };
    return Outbox::Create(connection, m_parts.outbox, allowance, kPrivateServiceName, onOverflow);
}

}  // namespace platform
