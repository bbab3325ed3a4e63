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
// A call has been served, or filed with its handle. Host thread.
using ServedHandler = std::function<void()>;

// Turns method calls into operations on handles. Its calls arrive on the host thread, except for
// commands that somebody takes before they get there.
class Interface {
public:
    Interface(HandleTable& handles, ScanReporter scans);

    // Exports the object for as long as the result lives, which is no longer than this one.
    std::unique_ptr<ExportedObject> Export(GDBusConnection* connection, PeerFinder finder,
                                           ServedHandler served = {});

    // Whether the message calls one of the object's methods, in the right form. Any thread.
    bool IsCall(GDBusMessage* message) const;
    // Files a command of the caller with its handle. False, and nothing has happened, when the
    // message is none or there is no such handle. For what IsCall is true of. Any thread.
    bool TryExecute(GDBusMessage* message, const Peer& caller);

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
