// Takes connections in, and turns them away while descriptors are short.
#ifndef PLATFORM_PLIV_HOST_LISTENER_H
#define PLATFORM_PLIV_HOST_LISTENER_H

#include <functional>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/HostLoop.h"
#include "Process/UniqueFd.h"

namespace platform {

// Connections are what outsiders take descriptors by, so they are what is refused first: a few are
// kept free for the work of those who are connected. Who is refused sees the connection end at
// once. When there is not even the one descriptor that refusing takes, clients wait in the
// kernel's line, which is looked at a few times a second; the loop does not spin meanwhile.
//
// Made, used and destroyed on the host thread.
class Listener {
public:
    using Taker = std::function<void(GSocketConnection* stream)>;

    // `socket` listens already and outlives the object. `take` runs on the host thread.
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
    void Note(const char* what);  // one line a minute at most
    ObjectPtr<GSocket> Accept(ErrorSlot& error) const;

    HostLoop& m_loop;
    GSocket* const m_socket;
    const Taker m_take;
    UniqueFd m_spare;  // given up for a moment to accept, and so end, a connection
    SourcePtr m_ready;
    SourcePtr m_again;
    gint64 m_lastLine = 0;  // the clock of g_get_monotonic_time
};

}  // namespace platform

#endif
