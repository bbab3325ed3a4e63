// The authentication of one new connection, before D-Bus messages are spoken on it.
#ifndef PLATFORM_PLIV_HOST_HANDSHAKE_H
#define PLATFORM_PLIV_HOST_HANDSHAKE_H

#include <functional>
#include <string>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/HostLoop.h"

namespace platform {

// The server's side of D-Bus's authentication, with EXTERNAL as its only mechanism: the kernel says
// who the peer is, and it has to be our own user. Not GDBus's, which takes nothing but a plain
// socket, and with that reads messages of up to 128 MiB. Reads no byte of what comes after it.
// Host thread; never waits, and needs no descriptor and no thread of its own.
class Handshake {
public:
    // Called once, from the host loop; the object may be destroyed in it. False: the peer was not
    // admitted, has gone, or has taken longer than ten seconds.
    using EndHandler = std::function<void(bool admitted)>;

    // `guid` names the server to its clients.
    Handshake(const HostLoop& loop, GSocket* socket, std::string guid, EndHandler onEnd);
    Handshake(const Handshake&) = delete;
    Handshake& operator=(const Handshake&) = delete;

private:
    enum class State { Begin, WantsData, Authenticated };
    enum class Next { Line, Wait, Admit, Refuse };

    static gboolean s_Ready(GSocket* socket, GIOCondition condition, gpointer self);
    static gboolean s_TooLate(gpointer self);
    void End(bool admitted);
    Next ReadLine();  // Line: m_line has a whole one
    Next Take(std::string line);
    Next TakeCommand(const std::string& word, const std::string& rest);
    Next Judge(const std::string& hexIdentity);
    Next Say(const std::string& text);

    const ObjectPtr<GSocket> m_socket;
    const std::string m_guid;
    EndHandler m_onEnd;
    State m_state = State::Begin;
    bool m_first = true;  // a NUL byte comes before the first line
    std::string m_line;
    SourcePtr m_ready;
    SourcePtr m_deadline;
};

}  // namespace platform

#endif
