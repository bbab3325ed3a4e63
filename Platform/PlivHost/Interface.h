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
// Returns the sender of a message; null when that client is gone. Host thread.
using PeerFinder = std::function<std::shared_ptr<Peer>(const char* sender)>;
// Called when a call has been served, or queued with its handle. Host thread.
using ServedHandler = std::function<void()>;

// Turns method calls into operations on handles. Calls arrive on the host thread, except for
// commands taken by TryExecute.
class Interface {
public:
    Interface(HandleTable& handles, ScanReporter scans);

    // Exports the object for the lifetime of the result, which must not outlive this object.
    std::unique_ptr<ExportedObject> Export(GDBusConnection* connection, PeerFinder finder,
                                           ServedHandler served = {});

    // Whether the message calls one of the object's methods, with the right signature. Any thread.
    bool IsCall(GDBusMessage* message) const;
    // Queues the caller's command with its handle. False, without any effect, when the message is
    // not a command or there is no such handle. Only for messages for which IsCall is true. Any
    // thread.
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
