#include "PlivHost/BusTransport.h"

#include <stdexcept>
#include <utility>

#include "Log/Log.h"
#include "PlivHost/Names.h"

namespace platform {
namespace {

constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kPrimaryOwner = 1;

ObjectPtr<GDBusConnection> ConnectToBus(GBusType bus) {
    ErrorSlot error;
    const TextPtr address(g_dbus_address_get_for_bus_sync(bus, nullptr, error.Out()));
    if (!address) throw std::runtime_error("no message bus: " + error.Text());
    ObjectPtr<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, error.Out()));
    if (!connection) throw std::runtime_error("cannot reach the message bus: " + error.Text());
    return connection;
}

}  // namespace

// One name on the bus that has called us, watched until it vanishes.
class BusTransport::Client {
public:
    Client(BusTransport& transport, const std::string& name)
        : m_transport(transport),
          m_peer(std::make_shared<Peer>(std::make_shared<Allowance>(transport.m_parts.pool),
                                        transport.m_outbox, name)),
          m_watch(g_bus_watch_name_on_connection(transport.m_connection.get(), name.c_str(),
                                                 G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr, s_Vanished,
                                                 this, nullptr)) {}
    ~Client() {
        g_bus_unwatch_name(m_watch);
        m_transport.m_parts.handles.CloseAllOf(*m_peer);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const std::shared_ptr<Peer>& ThePeer() const { return m_peer; }

private:
    static void s_Vanished(GDBusConnection*, const gchar* name, gpointer self) {
        static_cast<Client*>(self)->m_transport.Drop(name);
    }

    BusTransport& m_transport;
    const std::shared_ptr<Peer> m_peer;
    const guint m_watch;
};

BusTransport::BusTransport(const TransportParts& parts, GBusType bus)
    : m_parts(parts), m_connection(ConnectToBus(bus)) {
    g_signal_connect(m_connection.get(), "closed", G_CALLBACK(s_Closed), this);
    m_parts.outbox.endsAtLimit = false;
    const auto allowance = std::make_shared<Allowance>(m_parts.pool);
    m_outbox = Outbox::Create(m_connection.get(), m_parts.outbox, allowance, "", [] {
        PLATFORM_LOG(kLogTag, LOG_ERROR,
                     "the message bus takes our messages too slowly: some are dropped");
    });
    // Events of lasting handles have no destination: the bus delivers them to all listeners.
    m_parts.handles.Join(m_listeners = std::make_shared<Peer>(allowance, m_outbox, ""));
    m_object = m_parts.object.Export(m_connection.get(),
                                     [this](const char* sender) { return PeerOf(sender); });
    if (!m_object->IsThere())
        throw std::runtime_error("cannot export the service's object on the bus");
    RequestName();
}

BusTransport::~BusTransport() {
    g_signal_handlers_disconnect_by_data(m_connection.get(), this);
    m_object.reset();
    m_clients.clear();
    m_parts.handles.CloseAllOf(*m_listeners);
    m_outbox->Shut();
    Close();
}

// Does not use the synchronous call: that creates a main context, and GLib aborts the process when
// no descriptor is left for one.
void BusTransport::Close() {
    bool closed = false;
    const auto onClosed = [](GObject*, GAsyncResult*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    g_dbus_connection_close(m_connection.get(), nullptr, onClosed, &closed);
    while (!closed) g_main_context_iteration(m_parts.loop.Context(), TRUE);
}

const char* BusTransport::Failure() const {
    return m_lost ? "the connection to the message bus is lost" : nullptr;
}

void BusTransport::RequestName() {
    ErrorSlot error;
    const VariantPtr reply(g_dbus_connection_call_sync(
        m_connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", kBusName, kDoNotQueue), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.Out()));
    if (!reply)
        throw std::runtime_error(std::string("the bus refuses the name ") + kBusName + ": " +
                                 error.Text());
    guint32 answer = 0;
    g_variant_get(reply.get(), "(u)", &answer);
    if (answer != kPrimaryOwner)
        throw std::runtime_error(std::string("another process has the name ") + kBusName +
                                 " on this bus already");
}

void BusTransport::s_Closed(GDBusConnection*, gboolean, GError*, gpointer self) {
    auto* transport = static_cast<BusTransport*>(self);
    transport->m_lost = true;
    transport->m_parts.loop.Quit();
}

std::shared_ptr<Peer> BusTransport::PeerOf(const char* sender) {
    if (!sender) return nullptr;
    auto& client = m_clients[sender];
    if (!client) client = std::make_unique<Client>(*this, sender);
    return client->ThePeer();
}

void BusTransport::Drop(const std::string& name) {
    m_clients.erase(name);
}

}  // namespace platform
