// The D-Bus object that clients talk to.
#ifndef PLATFORM_PLIV_HOST_INTERFACE_H
#define PLATFORM_PLIV_HOST_INTERFACE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "MediaContent/MediaService.h"
#include "PlivHost/ExportedObject.h"
#include "PlivHost/HandleTable.h"

namespace platform {

using ScanReporter = std::function<std::vector<ScanProgress>()>;
// Who sent this message; null when that client is gone. Host thread.
using PeerFinder = std::function<std::shared_ptr<Peer>(const char* sender)>;

// Turns method calls into operations on handles. Its calls arrive on the host thread.
class Interface {
public:
    Interface(HandleTable& handles, ScanReporter scans);

    // Exports the object for as long as the result lives, which is no longer than this one.
    std::unique_ptr<ExportedObject> Export(GDBusConnection* connection, PeerFinder finder);

private:
    struct Registration;
    struct Request {
        MethodCall call;
        std::shared_ptr<Peer> peer;
        GVariant* parameters;
    };
    using Method = void (Interface::*)(Request&);

    static void s_Call(GDBusConnection* connection, const gchar* sender, const gchar* path,
                       const gchar* interface, const gchar* method, GVariant* parameters,
                       GDBusMethodInvocation* invocation, gpointer registration);
    void Open(Request& request);
    void OpenLasting(Request& request);
    void Execute(Request& request);
    void ExecuteWithParamList(Request& request);
    void Close(Request& request);
    void GetScanProgress(Request& request);

    HandleTable& m_handles;
    const ScanReporter m_scans;
    const NodeInfoPtr m_info;
};

}  // namespace platform

#endif
