// One client of the service: a connection, or a name on a bus.
#ifndef PLATFORM_PLIV_HOST_PEER_H
#define PLATFORM_PLIV_HOST_PEER_H

#include <memory>
#include <string>
#include <utility>

#include "PlivHost/Outbox.h"
#include "PlivHost/Owner.h"

namespace platform {

class Peer : public Owner {
public:
    // `name` is the client's unique name, to which messages are addressed.
    Peer(std::shared_ptr<Allowance> allowance, std::shared_ptr<Outbox> outbox, std::string name)
        : Owner(std::move(allowance)), m_outbox(std::move(outbox)), m_name(std::move(name)) {}

    void SendEvent(int handle, int kind, std::string name, std::string payload) override {
        m_outbox->PostEvent(m_name, handle, kind, std::move(name), std::move(payload));
    }

    const std::shared_ptr<Outbox>& Messages() const { return m_outbox; }
    const std::string& Name() const { return m_name; }

private:
    const std::shared_ptr<Outbox> m_outbox;
    const std::string m_name;
};

}  // namespace platform

#endif
