// Clients on a message bus, on which the service owns a name.
#ifndef PLATFORM_PLIV_HOST_BUS_TRANSPORT_H
#define PLATFORM_PLIV_HOST_BUS_TRANSPORT_H

#include <map>
#include <memory>
#include <string>

#include "PlivHost/Transport.h"

namespace platform {

class BusTransport : public Transport {
public:
    BusTransport(const TransportParts& parts, GBusType bus);
    ~BusTransport() override;

    const char* Failure() const override;

private:
    class Client;

    static void s_Closed(GDBusConnection* connection, gboolean vanished, GError* error,
                         gpointer self);
    std::shared_ptr<Peer> PeerOf(const char* sender);
    void RequestName();
    void Drop(const std::string& name);
    void Close();

    TransportParts m_parts;
    ObjectPtr<GDBusConnection> m_connection;
    std::shared_ptr<Outbox> m_outbox;   // shared: the bus always reads, and limits its clients
    std::shared_ptr<Peer> m_listeners;  // represents everybody rather than one client
    std::map<std::string, std::unique_ptr<Client>> m_clients;
    std::unique_ptr<ExportedObject> m_object;
    bool m_lost = false;
};

}  // namespace platform

#endif
