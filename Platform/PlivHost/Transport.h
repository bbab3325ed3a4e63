// How clients reach the service: each kind finds its clients and reports when they are gone.
#ifndef PLATFORM_PLIV_HOST_TRANSPORT_H
#define PLATFORM_PLIV_HOST_TRANSPORT_H

#include <cstddef>

#include "PlivHost/HandleTable.h"
#include "PlivHost/HostLoop.h"
#include "PlivHost/Interface.h"

namespace platform {

// What a transport works with; all of it outlives the transport.
struct TransportParts {
    HostLoop& loop;
    HandleTable& handles;
    Interface& object;
    OutboxLimits outbox;
    std::shared_ptr<Pool> pool;
    size_t maxConnections;
};

// Serves from construction to destruction. Created, used and destroyed on the host thread.
// Constructors throw std::runtime_error with a user-readable text.
class Transport {
public:
    Transport() = default;
    virtual ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // Why the transport stopped serving; null while all is well.
    virtual const char* Failure() const { return nullptr; }
};

}  // namespace platform

#endif
