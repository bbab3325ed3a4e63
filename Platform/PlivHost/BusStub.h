// The minimal message bus interface that common command line tools need on a private connection.
#ifndef PLATFORM_PLIV_HOST_BUS_STUB_H
#define PLATFORM_PLIV_HOST_BUS_STUB_H

#include <memory>
#include <string>

#include "PlivHost/ExportedObject.h"

namespace platform {

// The service's own unique name on private connections.
constexpr char kPrivateServiceName[] = ":1.0";

// Exports org.freedesktop.DBus on `connection` for a client whose unique name is `clientName`.
// Host thread.
std::unique_ptr<ExportedObject> ExportBusStub(GDBusConnection* connection,
                                              const std::string& clientName);

}  // namespace platform

#endif
