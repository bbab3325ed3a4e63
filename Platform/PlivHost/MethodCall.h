// One D-Bus method call that is waiting for its answer.
#ifndef PLATFORM_PLIV_HOST_METHOD_CALL_H
#define PLATFORM_PLIV_HOST_METHOD_CALL_H

#include <memory>
#include <string>

#include "PlivHost/Outbox.h"

namespace platform {

// Answered once, from any thread, by Return or Fail. Destroying it unanswered tells the client that
// the service is closing, so that no client waits for ever.
class MethodCall {
public:
    // Keeps only those parts of the message that the answer needs.
    MethodCall(GDBusMessage* call, std::shared_ptr<Outbox> outbox);
    ~MethodCall();
    MethodCall(MethodCall&&) = default;
    MethodCall& operator=(MethodCall&&) = delete;

    // `result` is a tuple, taken over when floating; null stands for the empty one.
    void Return(GVariant* result);
    // `name` must be a constant that outlives the call.
    void Fail(const char* name, const std::string& text);

private:
    void Answer(const char* error, VariantPtr body);

    guint32 m_serial;
    std::string m_caller;  // empty on a private connection
    bool m_wantsReply;
    std::shared_ptr<Outbox> m_outbox;  // null once answered
};

}  // namespace platform

#endif
