#include "Service/DBusClient.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace test {
namespace {

using platform::ErrorSlot;
using platform::VariantPtr;

constexpr char kPath[] = "/dorn/PlivHost";
constexpr char kInterface[] = "dorn.PlivHost1";
constexpr int kCallTimeout = 60 * 1000;  // milliseconds

GVariant* Command(int handle, const std::string& command, const std::string& arg1,
                  const std::string& arg2, const std::string& arg3, const std::string& arg4) {
    return g_variant_new("(isssss)", handle, command.c_str(), arg1.c_str(), arg2.c_str(),
                         arg3.c_str(), arg4.c_str());
}

void ReadExecuteAnswer(GVariant* result, Answer& answer) {
    gboolean handled = FALSE;
    const gchar* value = nullptr;
    g_variant_get(result, "(b&s)", &handled, &value);
    answer.handled = handled;
    answer.value = value;
}

void ReadOpenAnswer(GVariant* result, Answer& answer) {
    gint32 handle = 0;
    g_variant_get(result, "(i)", &handle);
    answer.value = std::to_string(handle);
}

void TakeError(GError* error, Answer& answer) {
    const platform::TextPtr name(g_dbus_error_get_remote_error(error));
    answer.error = name ? name.get() : "local";
    g_dbus_error_strip_remote_error(error);
    answer.text = error->message;
}

}  // namespace

// The client's, and as long as GDBus's thread may still be in the filter.
struct DBusClient::Inbox {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Event> events;  // these are guarded by the mutex
    size_t seen = 0;
};

DBusClient::DBusClient(const std::string& socketPath) : m_inbox(std::make_shared<Inbox>()) {
    ErrorSlot error;
    m_connection.reset(g_dbus_connection_new_for_address_sync(
        ("unix:path=" + socketPath).c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING),
        nullptr, nullptr, error.Out()));
    if (!m_connection) throw std::runtime_error(error.Text());
    m_filter = g_dbus_connection_add_filter(
        m_connection.get(), s_Filter, new std::shared_ptr<Inbox>(m_inbox),
        [](gpointer inbox) { delete static_cast<std::shared_ptr<Inbox>*>(inbox); });
    g_dbus_connection_start_message_processing(m_connection.get());
}

DBusClient::~DBusClient() {
    g_dbus_connection_remove_filter(m_connection.get(), m_filter);
    g_dbus_connection_close_sync(m_connection.get(), nullptr, nullptr);
}

// GDBus's thread: no loop of ours has to run for an event to come in.
GDBusMessage* DBusClient::s_Filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                   gpointer inbox) {
    const gchar* member = g_dbus_message_get_member(message);
    GVariant* body = g_dbus_message_get_body(message);
    if (!incoming || g_strcmp0(member, "Event") != 0 ||
        !g_variant_is_of_type(body, G_VARIANT_TYPE("(iiss)")))
        return message;
    Event event{};
    const gchar* name = nullptr;
    const gchar* payload = nullptr;
    g_variant_get(body, "(ii&s&s)", &event.handle, &event.kind, &name, &payload);
    event.name = name;
    event.payload = payload;
    Inbox& box = **static_cast<std::shared_ptr<Inbox>*>(inbox);
    std::lock_guard<std::mutex> lock(box.mutex);
    box.events.push_back(std::move(event));
    ++box.seen;
    box.changed.notify_all();
    return message;
}

Answer DBusClient::Call(const char* method, GVariant* parameters,
                        const std::function<void(GVariant*, Answer&)>& read) {
    GError* error = nullptr;
    Answer answer;
    const VariantPtr result(g_dbus_connection_call_sync(
        m_connection.get(), nullptr, kPath, kInterface, method, parameters, nullptr,
        G_DBUS_CALL_FLAGS_NONE, kCallTimeout, nullptr, &error));
    if (result)
        read(result.get(), answer);
    else
        TakeError(error, answer);
    g_clear_error(&error);
    return answer;
}

Answer DBusClient::TryOpen(const std::string& name, const char* method) {
    return Call(method, g_variant_new("(s)", name.c_str()), ReadOpenAnswer);
}

int DBusClient::Open(const std::string& name, const char* method) {
    const Answer answer = TryOpen(name, method);
    return answer.error.empty() ? std::stoi(answer.value) : -1;
}

Answer DBusClient::Execute(int handle, const std::string& command, const std::string& arg1,
                           const std::string& arg2, const std::string& arg3,
                           const std::string& arg4) {
    return Call("Execute", Command(handle, command, arg1, arg2, arg3, arg4), ReadExecuteAnswer);
}

Answer DBusClient::ExecuteWithParamList(int handle, const std::string& command,
                                        const std::vector<std::string>& params) {
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
    for (const auto& param : params) g_variant_builder_add(&list, "s", param.c_str());
    return Call("ExecuteWithParamList", g_variant_new("(isas)", handle, command.c_str(), &list),
                ReadExecuteAnswer);
}

std::string DBusClient::Close(int handle) {
    return Call("Close", g_variant_new("(i)", handle), [](GVariant*, Answer&) {}).error;
}

void DBusClient::Send(int handle, const std::string& command, const std::string& arg1,
                      const std::string& arg2, const std::string& arg3, const std::string& arg4) {
    g_dbus_connection_call(m_connection.get(), nullptr, kPath, kInterface, "Execute",
                           Command(handle, command, arg1, arg2, arg3, arg4), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, kCallTimeout, nullptr, nullptr, nullptr);
    g_dbus_connection_flush_sync(m_connection.get(), nullptr, nullptr);
}

std::optional<Event> DBusClient::Wait(const std::function<bool(const Event&)>& fits,
                                      std::chrono::seconds deadline) {
    std::unique_lock<std::mutex> lock(m_inbox->mutex);
    std::vector<Event>& events = m_inbox->events;
    auto found = events.end();
    const auto look = [&] {
        found = std::find_if(events.begin(), events.end(), fits);
        return found != events.end();
    };
    if (!m_inbox->changed.wait_for(lock, deadline, look)) return std::nullopt;
    Event event = std::move(*found);
    events.erase(found);
    return event;
}

std::optional<Event> DBusClient::Wait(const std::string& name, std::chrono::seconds deadline) {
    return Wait([&](const Event& event) { return event.name == name; }, deadline);
}

std::vector<Event> DBusClient::TakeAll() {
    std::lock_guard<std::mutex> lock(m_inbox->mutex);
    return std::exchange(m_inbox->events, {});
}

size_t DBusClient::EventsSeen() {
    std::lock_guard<std::mutex> lock(m_inbox->mutex);
    return m_inbox->seen;
}

}  // namespace test
