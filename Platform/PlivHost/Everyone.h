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

// Thread-safe. Events go to every client that has joined, each limited by its own outbox.
class Everyone : public Owner {
public:
    using Owner::Owner;

    void Join(const std::shared_ptr<Peer>& peer);
    void Leave(const Peer& peer);
    void SendEvent(int handle, int kind, std::string name, std::string payload) override;

private:
    std::mutex m_mutex;  // held while the list is copied
    std::vector<std::shared_ptr<Peer>> m_peers;
};

}  // namespace platform

#endif
