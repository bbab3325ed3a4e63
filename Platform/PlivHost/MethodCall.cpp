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

void MethodCall::Answer(const char* error, VariantPtr body) {
    if (WantsReply()) {
        const char* caller = g_dbus_message_get_sender(m_call.get());
        m_outbox->PostReply({g_dbus_message_get_serial(m_call.get()), caller ? caller : "", error,
                             std::move(body)});
    }
    m_call.reset();
}

void MethodCall::Return(GVariant* result) {
    Answer(nullptr, VariantPtr(result ? g_variant_ref_sink(result) : nullptr));
}

void MethodCall::Fail(const char* name, const std::string& text) {
    Answer(name, VariantPtr(g_variant_ref_sink(g_variant_new("(s)", ToUtf8(text).c_str()))));
}

}  // namespace platform
