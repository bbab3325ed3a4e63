#include "PlivHost/Outbox.h"

#include <utility>

#include "Log/Log.h"
#include "PlivHost/ByNumber.h"
#include "PlivHost/Names.h"
#include "PlivHost/Utf8.h"

namespace platform {
namespace {

constexpr size_t kOverhead = 256;  // per waiting message: its record, headers and heap blocks

// The size of a reply's body. Computing it serialises the body.
size_t BodySize(GVariant* body) {
    if (!body) return 0;
    g_variant_get_data(body);
    return g_variant_get_size(body);
}

ObjectPtr<GDBusMessage> NewReply(const Reply& reply) {
    ObjectPtr<GDBusMessage> message(g_dbus_message_new());
    g_dbus_message_set_message_type(
        message.get(), reply.error ? G_DBUS_MESSAGE_TYPE_ERROR : G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
    g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_message_set_reply_serial(message.get(), reply.serial);
    if (!reply.caller.empty()) g_dbus_message_set_destination(message.get(), reply.caller.c_str());
    if (reply.error) g_dbus_message_set_error_name(message.get(), reply.error);
    if (reply.body) g_dbus_message_set_body(message.get(), reply.body.get());
    return message;
}

// Never destroyed: GDBus's thread lives until the process ends.
ByNumber<Outbox>& TheOutboxes() {
    static auto* outboxes = new ByNumber<Outbox>;
    return *outboxes;
}

}  // namespace

Outbox::Outbox(GDBusConnection* connection, const OutboxLimits& limits,
               std::shared_ptr<Allowance> allowance, std::string sender, OverflowHandler onOverflow)
    : m_connection(Share(connection)),
      m_limits(limits),
      m_allowance(std::move(allowance)),
      m_sender(std::move(sender)),
      m_onOverflow(std::move(onOverflow)) {}

Outbox::~Outbox() {
    TheOutboxes().Remove(m_number);
    m_allowance->GiveBack(m_waitingBytes, Use::Message);
}

std::shared_ptr<Outbox> Outbox::Create(GDBusConnection* connection, const OutboxLimits& limits,
                                       std::shared_ptr<Allowance> allowance, std::string sender,
                                       OverflowHandler onOverflow) {
    const std::shared_ptr<Outbox> outbox(new Outbox(connection, limits, std::move(allowance),
                                                    std::move(sender), std::move(onOverflow)));
    outbox->m_number = TheOutboxes().Add(outbox);
    outbox->m_filter = g_dbus_connection_add_filter(
        connection, s_Filter, reinterpret_cast<gpointer>(outbox->m_number), nullptr);
    return outbox;
}

GDBusMessage* Outbox::s_Filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                               gpointer number) {
    if (incoming) return message;
    if (const auto outbox = TheOutboxes().Find(number))
        outbox->Written(g_dbus_message_get_serial(message));
    return message;
}

void Outbox::PostReply(Reply reply) {
    const size_t size = kOverhead + BodySize(reply.body.get());
    Post({std::move(reply), size});
}

void Outbox::PostEvent(const std::string& destination, int handle, int kind, std::string name,
                       std::string payload) {
    Event event{destination, handle, kind, ToUtf8(std::move(name)), ToUtf8(std::move(payload))};
    const size_t size = kOverhead + event.name.size() + event.payload.size();
    Post({std::move(event), size});
}

void Outbox::Post(Item item) {
    bool report = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (Takes(item.size, report)) {
            m_waiting.push_back(std::move(item));
            Pump();
        }
    }
    if (report) m_onOverflow();
}

bool Outbox::Takes(size_t size, bool& isFirstRefusal) {
    if (m_dead) return false;
    if (m_allowance->Take(size, Use::Message)) {
        m_waitingBytes += size;
        m_overflowing = false;
        return true;
    }
    isFirstRefusal = !m_overflowing;
    m_overflowing = true;
    if (m_limits.endsAtLimit) Drop();
    return false;
}

bool Outbox::WindowIsFull() const {
    return m_inFlight.size() >= m_limits.windowMessages || m_inFlightBytes >= m_limits.windowBytes;
}

void Outbox::Pump() {
    while (!m_waiting.empty() && !WindowIsFull()) {
        Item item = std::move(m_waiting.front());
        m_waiting.pop_front();
        guint32 serial = 0;
        ErrorSlot error;
        if (g_dbus_connection_send_message(m_connection.get(), MessageOf(item).get(),
                                           G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, error.Out())) {
            m_inFlight.push_back({serial, item.size});
            m_inFlightBytes += item.size;
            continue;
        }
        Gone(item.size);
        if (!error.Is(G_IO_ERROR, G_IO_ERROR_CLOSED))
            PLATFORM_LOG(kLogTag, LOG_WARNING, "a message could not be sent: %s",
                         error.Text().c_str());
    }
}

// Serials grow in queue order, so all messages up to this one have left the queue.
void Outbox::Written(guint32 serial) {
    std::lock_guard<std::mutex> lock(m_mutex);
    while (!m_inFlight.empty() && m_inFlight.front().serial <= serial) {
        m_inFlightBytes -= m_inFlight.front().size;
        Gone(m_inFlight.front().size);
        m_inFlight.pop_front();
    }
    if (!m_dead) Pump();
}

ObjectPtr<GDBusMessage> Outbox::MessageOf(const Item& item) const {
    ObjectPtr<GDBusMessage> message;
    if (const auto* reply = std::get_if<Reply>(&item.content))
        message = NewReply(*reply);
    else
        message = NewSignal(std::get<Event>(item.content));
    if (!m_sender.empty()) g_dbus_message_set_sender(message.get(), m_sender.c_str());
    return message;
}

ObjectPtr<GDBusMessage> Outbox::NewSignal(const Event& event) {
    ObjectPtr<GDBusMessage> message(g_dbus_message_new_signal(kObjectPath, kInterface, "Event"));
    g_dbus_message_set_body(message.get(),
                            g_variant_new("(iiss)", event.handle, event.kind, event.name.c_str(),
                                          event.payload.c_str()));
    if (!event.destination.empty())
        g_dbus_message_set_destination(message.get(), event.destination.c_str());
    return message;
}

void Outbox::Gone(size_t size) {
    m_waitingBytes -= size;
    m_allowance->GiveBack(size, Use::Message);
}

void Outbox::Drop() {
    m_dead = true;
    m_waiting.clear();
    Gone(m_waitingBytes - m_inFlightBytes);
}

void Outbox::Shut() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Drop();
    }
    if (m_filter != 0) g_dbus_connection_remove_filter(m_connection.get(), m_filter);
    m_filter = 0;
}

}  // namespace platform
