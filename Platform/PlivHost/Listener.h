// Accepts connections, and refuses them while descriptors are short.
#ifndef PLATFORM_PLIV_HOST_LISTENER_H
#define PLATFORM_PLIV_HOST_LISTENER_H

#include <functional>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/HostLoop.h"
#include "Process/UniqueFd.h"

namespace platform {

// Outsiders consume descriptors by connecting, so new connections are refused first: a few
// descriptors are kept free for the clients that are connected. A refused client sees its
// connection close at once. When not even the one descriptor needed to refuse is available, clients
// wait in the kernel's accept queue, which is checked a few times a second; the loop does not spin
// meanwhile. Created, used and destroyed on the host thread.
class Listener {
public:
    using Taker = std::function<void(GSocketConnection* stream)>;

    // `socket` is already listening and outlives the object. `take` runs on the host thread.
    Listener(HostLoop& loop, GSocket* socket, Taker take);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

private:
    enum class Outcome { Done, Stuck };

    static gboolean s_Ready(GSocket* socket, GIOCondition condition, gpointer self);
    static gboolean s_TryAgain(gpointer self);
    void Listen();
    void Pause();
    Outcome TakeOne();
    void Take(GSocket* socket) const;
    void Note(const char* what);  // at most one line a minute
    ObjectPtr<GSocket> Accept(ErrorSlot& error) const;

    HostLoop& m_loop;
    GSocket* const m_socket;
    const Taker m_take;
    UniqueFd m_spare;  // closed temporarily to accept, and so end, a connection
    SourcePtr m_ready;
    SourcePtr m_again;
    gint64 m_lastLine = 0;  // from g_get_monotonic_time
};

}  // namespace platform

#endif
