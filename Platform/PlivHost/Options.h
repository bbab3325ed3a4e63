// The command line of the plugin process.
#ifndef PLATFORM_PLIV_HOST_OPTIONS_H
#define PLATFORM_PLIV_HOST_OPTIONS_H

#include <string>
#include <variant>

#include "PlivHost/Server.h"
#include "UsbDevice/UsbService.h"

namespace platform {

struct HostOptions {
    BusKind bus = BusKind::None;
    std::string socketPath;
    UsbServiceOptions usb;
    std::string databaseFile;
    std::string extractor;
    int logPriority = 0;
    bool hasLogPriority = false;
    bool help = false;
    bool version = false;
};

struct UsageError {
    std::string text;
};

// Missing options get defaults that depend on the user and on XDG_RUNTIME_DIR, XDG_STATE_HOME and
// HOME. The texts of --help and of errors are meant for people.
std::variant<HostOptions, UsageError> ParseHostOptions(int argc, const char* const* argv);
std::string HostHelp();

}  // namespace platform

#endif
