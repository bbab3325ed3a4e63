// The owner of lasting handles: all clients together.
#ifndef PLATFORM_PLIV_HOST_EVERYONE_H
#define PLATFORM_PLIV_HOST_EVERYONE_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "PlivHost/Owner.h"
#include "PlivHost/Peer.h"

namespace platform {

// Any thread. Events go to whoever has joined, each bounded by an outbox of its own.
class Everyone : public Owner {
public:
    using Owner::Owner;

    void Join(const std::shared_ptr<Peer>& peer);
    void Leave(const Peer& peer);
    void SendEvent(int handle, int kind, std::string name, std::string payload) override;

private:
    std::mutex m_mutex;  // held for a copy of the list
    std::vector<std::shared_ptr<Peer>> m_peers;
};

}  // namespace platform

#endif
