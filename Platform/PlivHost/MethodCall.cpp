#include "PlivHost/MethodCall.h"

#include <utility>

#include "PlivHost/Names.h"
#include "PlivHost/Utf8.h"

namespace platform {

namespace {

std::string SenderOf(GDBusMessage* call) {
    const char* sender = g_dbus_message_get_sender(call);
    return sender ? sender : "";
}

}  // namespace

MethodCall::MethodCall(GDBusMessage* call, std::shared_ptr<Outbox> outbox)
    : m_serial(g_dbus_message_get_serial(call)),
      m_caller(SenderOf(call)),
      m_wantsReply(!(g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED)),
      m_outbox(std::move(outbox)) {}

MethodCall::~MethodCall() {
    if (m_outbox) Fail(kErrorClosing, "the handle or the service was closed before the call ran");
}

void MethodCall::Answer(const char* error, VariantPtr body) {
    const auto outbox = std::move(m_outbox);
    if (m_wantsReply) outbox->PostReply({m_serial, std::move(m_caller), error, std::move(body)});
}

void MethodCall::Return(GVariant* result) {
    Answer(nullptr, VariantPtr(result ? g_variant_ref_sink(result) : nullptr));
}

void MethodCall::Fail(const char* name, const std::string& text) {
    Answer(name, VariantPtr(g_variant_ref_sink(g_variant_new("(s)", ToUtf8(text).c_str()))));
}

}  // namespace platform
