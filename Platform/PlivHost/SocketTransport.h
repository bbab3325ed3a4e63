// Clients that connect directly to a private unix socket, without a message bus.
#ifndef PLATFORM_PLIV_HOST_SOCKET_TRANSPORT_H
#define PLATFORM_PLIV_HOST_SOCKET_TRANSPORT_H

#include <map>
#include <memory>
#include <string>

#include "PlivHost/Listener.h"
#include "PlivHost/SocketFile.h"
#include "PlivHost/Transport.h"

namespace platform {

class SocketTransport : public Transport {
public:
    SocketTransport(const TransportParts& parts, const std::string& path);
    ~SocketTransport() override;

private:
    class Client;

    void Accept(GSocketConnection* stream);
    void Drop(unsigned long long number);
    std::shared_ptr<Outbox> NewOutbox(GDBusConnection* connection, unsigned long long number,
                                      const std::shared_ptr<Allowance>& allowance);

    TransportParts m_parts;
    SocketFile m_file;
    const TextPtr m_guid;
    unsigned long long m_lastNumber = 0;
    std::map<unsigned long long, std::unique_ptr<Client>> m_clients;
    std::unique_ptr<Listener> m_listener;
};

}  // namespace platform

#endif
