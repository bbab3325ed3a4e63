// What GDBus reads and writes on a private connection: messages up to a size.
#ifndef PLATFORM_PLIV_HOST_MESSAGE_STREAM_H
#define PLATFORM_PLIV_HOST_MESSAGE_STREAM_H

#include <memory>
#include <mutex>
#include <vector>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/Outbox.h"

namespace platform {

// Answers the calls that were too large to be read. Any thread.
class LargeCalls {
public:
    void Refuse(guint32 serial, size_t size);
    // Where the answers go, from now on and for the calls that came before.
    void AnswerOn(const std::shared_ptr<Outbox>& outbox);

private:
    static void Answer(Outbox& outbox, guint32 serial);

    std::mutex m_mutex;
    // Weak: it holds the connection, which holds the stream, which holds this.
    std::weak_ptr<Outbox> m_outbox;
    bool m_answering = false;  // guarded by m_mutex, as below
    std::vector<guint32> m_early;
};

// The socket's stream, without the incoming messages that are larger than a call may be: those are
// read and dropped bit by bit, so that nobody ever holds them, and the connection goes on behind
// them. GDBus's own limit is 128 MiB, and what it has read once it keeps room for. Pollable; never
// blocks. Used by GDBus's thread alone; carries no descriptors.
ObjectPtr<GIOStream> NewMessageStream(GSocket* socket, std::shared_ptr<LargeCalls> largeCalls);

}  // namespace platform

#endif
