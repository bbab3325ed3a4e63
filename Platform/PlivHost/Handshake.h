// The authentication of one new connection, before any D-Bus message.
#ifndef PLATFORM_PLIV_HOST_HANDSHAKE_H
#define PLATFORM_PLIV_HOST_HANDSHAKE_H

#include <functional>
#include <string>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/HostLoop.h"

namespace platform {

// The server side of D-Bus authentication, with EXTERNAL as its only mechanism: the kernel
// identifies the peer, which must be our own user. GDBus's implementation is not used because it
// only accepts a plain socket, on which it then reads messages of up to 128 MiB. Reads no byte
// beyond the handshake. Host thread; never waits, and needs neither a descriptor nor a thread.
class Handshake {
public:
    // Called once, from the host loop; the object may be destroyed in it. False: the peer was
    // refused, has disconnected, or has taken longer than ten seconds.
    using EndHandler = std::function<void(bool admitted)>;

    // `guid` identifies the server to its clients.
    Handshake(const HostLoop& loop, GSocket* socket, std::string guid, EndHandler onEnd);
    Handshake(const Handshake&) = delete;
    Handshake& operator=(const Handshake&) = delete;

private:
    enum class State { Begin, WantsData, Authenticated };
    enum class Next { Line, Wait, Admit, Refuse };

    static gboolean s_Ready(GSocket* socket, GIOCondition condition, gpointer self);
    static gboolean s_TooLate(gpointer self);
    void End(bool admitted);
    Next ReadLine();  // Line: m_line contains a complete one
    Next Take(std::string line);
    Next TakeCommand(const std::string& word, const std::string& rest);
    Next Judge(const std::string& hexIdentity);
    Next Say(const std::string& text);

    const ObjectPtr<GSocket> m_socket;
    const std::string m_guid;
    EndHandler m_onEnd;
    State m_state = State::Begin;
    bool m_first = true;  // a NUL byte precedes the first line
    std::string m_line;
    SourcePtr m_ready;
    SourcePtr m_deadline;
};

}  // namespace platform

#endif
