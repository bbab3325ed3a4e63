#include "PlivHost/MethodCall.h"

#include <utility>

#include "PlivHost/Names.h"
#include "PlivHost/Utf8.h"

namespace platform {

MethodCall::MethodCall(GDBusMessage* call, std::shared_ptr<Outbox> outbox)
    : m_call(Share(call)), m_outbox(std::move(outbox)) {}

MethodCall::~MethodCall() {
    if (m_call) Fail(kErrorClosing, "the handle or the service was closed before the call ran");
}

bool MethodCall::WantsReply() const {
    return !(g_dbus_message_get_flags(m_call.get()) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
}

void MethodCall::Return(GVariant* result) {
    const VariantPtr body(result ? g_variant_ref_sink(result) : nullptr);
    if (WantsReply()) {
        ObjectPtr<GDBusMessage> reply(g_dbus_message_new_method_reply(m_call.get()));
        if (body) g_dbus_message_set_body(reply.get(), body.get());
        m_outbox->PostReply(std::move(reply));
    }
    m_call.reset();
}

void MethodCall::Fail(const char* name, const std::string& text) {
    if (WantsReply())
        m_outbox->PostReply(ObjectPtr<GDBusMessage>(
            g_dbus_message_new_method_error_literal(m_call.get(), name, ToUtf8(text).c_str())));
    m_call.reset();
}

}  // namespace platform
