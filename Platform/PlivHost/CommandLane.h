// The short way of commands: from GDBus's thread straight to their handle's.
#ifndef PLATFORM_PLIV_HOST_COMMAND_LANE_H
#define PLATFORM_PLIV_HOST_COMMAND_LANE_H

#include <cstdint>
#include <memory>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/Interface.h"
#include "PlivHost/Peer.h"

namespace platform {

// Takes the commands that come on one private connection where GDBus reads them, so that they do
// not pass the host thread. All else goes the ordinary way, and so does a command while a call
// before it is still on that way: a client's calls keep their order.
class CommandLane {
public:
    // Made before the connection's messages are processed. Made and destroyed on the host thread;
    // when the destructor returns, GDBus's thread hands over no command any more.
    CommandLane(GDBusConnection* connection, Interface& object, std::shared_ptr<Peer> peer);
    ~CommandLane();
    CommandLane(const CommandLane&) = delete;
    CommandLane& operator=(const CommandLane&) = delete;

    // A call that came the ordinary way has been served. Host thread.
    void NoteServed();

private:
    class Taker;
    static GDBusMessage* s_Filter(GDBusConnection* connection, GDBusMessage* message,
                                  gboolean incoming, gpointer number);

    const ObjectPtr<GDBusConnection> m_connection;
    const std::shared_ptr<Taker> m_taker;
    const uintptr_t m_number;  // names the taker to the filter
    const guint m_filter;
};

}  // namespace platform

#endif
