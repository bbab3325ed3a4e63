#include "PlivHost/Everyone.h"

#include <algorithm>

namespace platform {

void Everyone::Join(const std::shared_ptr<Peer>& peer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_peers.push_back(peer);
}

void Everyone::Leave(const Peer& peer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_peers.erase(std::remove_if(m_peers.begin(), m_peers.end(),
                                 [&](const auto& known) { return known.get() == &peer; }),
                  m_peers.end());
}

void Everyone::SendEvent(int handle, int kind, std::string name, std::string payload) {
    std::vector<std::shared_ptr<Peer>> peers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        peers = m_peers;
    }
    for (const auto& peer : peers) peer->SendEvent(handle, kind, name, payload);
}

}  // namespace platform
