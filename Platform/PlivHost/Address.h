// Default addresses of the service.
#ifndef PLATFORM_PLIV_HOST_ADDRESS_H
#define PLATFORM_PLIV_HOST_ADDRESS_H

#include <string>

namespace platform {

// The socket path in a D-Bus address; empty unless it is unix:path=... with an absolute path.
std::string SocketPathOf(const std::string& address);

// unix:path=... below XDG_RUNTIME_DIR, or /run for root without it; empty when there is neither.
std::string DefaultAddress();

}  // namespace platform

#endif
