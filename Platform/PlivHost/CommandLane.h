// A fast path for commands: from GDBus's thread straight to the handle's thread.
#ifndef PLATFORM_PLIV_HOST_COMMAND_LANE_H
#define PLATFORM_PLIV_HOST_COMMAND_LANE_H

#include <cstdint>
#include <memory>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/Interface.h"
#include "PlivHost/Peer.h"

namespace platform {

// Takes the commands of one private connection on the thread where GDBus reads them, so that they
// bypass the host thread. Everything else takes the ordinary path, and so does a command while an
// earlier call is still on that path: the order of a client's calls is preserved.
class CommandLane {
public:
    // Created before the connection's messages are processed. Created and destroyed on the host
    // thread; once the destructor returns, GDBus's thread hands over no more commands.
    CommandLane(GDBusConnection* connection, Interface& object, std::shared_ptr<Peer> peer);
    ~CommandLane();
    CommandLane(const CommandLane&) = delete;
    CommandLane& operator=(const CommandLane&) = delete;

    // A call on the ordinary path has been served. Host thread.
    void NoteServed();

private:
    class Taker;
    static GDBusMessage* s_Filter(GDBusConnection* connection, GDBusMessage* message,
                                  gboolean incoming, gpointer number);

    const ObjectPtr<GDBusConnection> m_connection;
    const std::shared_ptr<Taker> m_taker;
    const uintptr_t m_number;  // identifies the taker to the filter
    const guint m_filter;
};

}  // namespace platform

#endif
