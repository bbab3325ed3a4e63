#include "PlivHost/Address.h"

#include <stdlib.h>
#include <unistd.h>

#include "PlivHost/GlibPtr.h"

namespace platform {

std::string SocketPathOf(const std::string& address) {
    const std::string prefix = "unix:path=";
    if (address.compare(0, prefix.size(), prefix) != 0) return {};
    const std::string value = address.substr(prefix.size());
    if (value.find_first_of(",;") != std::string::npos) return {};
    const TextPtr path(g_uri_unescape_string(value.c_str(), nullptr));
    return path && path.get()[0] == '/' ? path.get() : "";
}

std::string DefaultAddress() {
    std::string folder;
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    if (runtime && *runtime)
        folder = runtime;
    else if (geteuid() == 0)
        folder = "/run";
    else
        return {};
    const TextPtr path(g_dbus_address_escape_value((folder + "/contents-mgr/socket").c_str()));
    return std::string("unix:path=") + path.get();
}

}  // namespace platform
