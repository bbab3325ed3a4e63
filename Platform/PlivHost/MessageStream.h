// The stream that GDBus uses on a private connection, which limits the size of messages.
#ifndef PLATFORM_PLIV_HOST_MESSAGE_STREAM_H
#define PLATFORM_PLIV_HOST_MESSAGE_STREAM_H

#include <memory>
#include <mutex>
#include <vector>

#include "PlivHost/GlibPtr.h"
#include "PlivHost/Outbox.h"

namespace platform {

// Answers calls that were too large to be read. Thread-safe.
class LargeCalls {
public:
    void Refuse(guint32 serial, size_t size);
    // Where answers go from now on, including those for earlier calls.
    void AnswerOn(const std::shared_ptr<Outbox>& outbox);

private:
    static void Answer(Outbox& outbox, guint32 serial);

    std::mutex m_mutex;
    // Weak: the outbox holds the connection, which holds the stream, which holds this.
    std::weak_ptr<Outbox> m_outbox;
    bool m_answering = false;  // guarded by m_mutex, as is m_early
    std::vector<guint32> m_early;
};

// The socket's stream without incoming messages that exceed the size of a call: those are read and
// discarded piecemeal, so that they are never held in memory, and the connection continues after
// them. GDBus's own limit is 128 MiB, and it keeps a buffer of the largest size that it has read.
// Pollable; never blocks. Used by GDBus's thread alone; passes no descriptors.
ObjectPtr<GIOStream> NewMessageStream(GSocket* socket, std::shared_ptr<LargeCalls> largeCalls);

}  // namespace platform

#endif
