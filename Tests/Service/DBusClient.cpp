#include "Service/DBusClient.h"

#include <future>
#include <stdexcept>
#include <utility>

namespace test {
namespace {

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

void TakeError(GError* error, Answer& answer) {
    gchar* name = g_dbus_error_get_remote_error(error);
    answer.error = name ? name : "local";
    g_free(name);
    g_dbus_error_strip_remote_error(error);
    answer.text = error->message;
    g_error_free(error);
}

}  // namespace

DBusClient::DBusClient(const std::string& socketPath)
    : m_context(g_main_context_new()), m_loop(g_main_loop_new(m_context, FALSE)) {
    std::promise<std::string> connected;
    m_thread = std::thread([&, this] {
        g_main_context_push_thread_default(m_context);
        GError* error = nullptr;
        m_connection = g_dbus_connection_new_for_address_sync(
            ("unix:path=" + socketPath).c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING),
            nullptr, nullptr, &error);
        if (m_connection) {
            g_signal_connect(m_connection, "closed", G_CALLBACK(s_Closed), this);
            g_dbus_connection_signal_subscribe(m_connection, nullptr, kInterface, "Event", kPath,
                                               nullptr, G_DBUS_SIGNAL_FLAGS_NONE, s_Signal, this,
                                               nullptr);
            g_dbus_connection_start_message_processing(m_connection);
        }
        connected.set_value(error ? error->message : "");
        const bool failed = error != nullptr;
        g_clear_error(&error);
        if (!failed) g_main_loop_run(m_loop);
        g_main_context_pop_thread_default(m_context);
    });
    const std::string failure = connected.get_future().get();
    if (failure.empty()) return;
    m_thread.join();
    g_main_loop_unref(m_loop);
    g_main_context_unref(m_context);
    throw std::runtime_error(failure);
}

DBusClient::~DBusClient() {
    GSource* quit = g_idle_source_new();
    g_source_set_callback(
        quit,
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        m_loop, nullptr);
    g_source_attach(quit, m_context);
    g_source_unref(quit);
    m_thread.join();
    g_signal_handlers_disconnect_by_data(m_connection, this);
    g_dbus_connection_close_sync(m_connection, nullptr, nullptr);
    g_object_unref(m_connection);
    g_main_loop_unref(m_loop);
    g_main_context_unref(m_context);
}

void DBusClient::s_Signal(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                          GVariant* parameters, gpointer data) {
    auto* self = static_cast<DBusClient*>(data);
    Event event{};
    const gchar* name = nullptr;
    const gchar* payload = nullptr;
    g_variant_get(parameters, "(ii&s&s)", &event.handle, &event.kind, &name, &payload);
    event.name = name;
    event.payload = payload;
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_events.push_back(std::move(event));
    ++self->m_seen;
    self->m_changed.notify_all();
}

void DBusClient::s_Closed(GDBusConnection*, gboolean, GError*, gpointer data) {
    auto* self = static_cast<DBusClient*>(data);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_closed = true;
    self->m_changed.notify_all();
}

Answer DBusClient::Call(const char* method, GVariant* parameters,
                        const std::function<void(GVariant*, Answer&)>& read) {
    GError* error = nullptr;
    Answer answer;
    GVariant* result =
        g_dbus_connection_call_sync(m_connection, nullptr, kPath, kInterface, method, parameters,
                                    nullptr, G_DBUS_CALL_FLAGS_NONE, kCallTimeout, nullptr, &error);
    if (!result) {
        TakeError(error, answer);
        return answer;
    }
    read(result, answer);
    g_variant_unref(result);
    return answer;
}

int DBusClient::OpenLasting() {
    const Answer answer = TryOpen("test", "OpenLasting");
    return answer.error.empty() ? std::stoi(answer.value) : -1;
}

Answer DBusClient::TryOpen(const std::string& name, const char* method) {
    return Call(method, g_variant_new("(s)", name.c_str()), [](GVariant* result, Answer& answer) {
        gint32 handle = 0;
        g_variant_get(result, "(i)", &handle);
        answer.value = std::to_string(handle);
    });
}

int DBusClient::Open(const std::string& name) {
    const Answer answer = TryOpen(name);
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
    g_dbus_connection_call(m_connection, nullptr, kPath, kInterface, "Execute",
                           Command(handle, command, arg1, arg2, arg3, arg4), nullptr,
                           G_DBUS_CALL_FLAGS_NONE, kCallTimeout, nullptr, nullptr, nullptr);
    g_dbus_connection_flush_sync(m_connection, nullptr, nullptr);
}

std::optional<Event> DBusClient::Wait(const std::function<bool(const Event&)>& fits,
                                      std::chrono::seconds deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto found = m_events.end();
    const auto look = [&] {
        found = m_events.begin();
        while (found != m_events.end() && !fits(*found)) ++found;
        return found != m_events.end();
    };
    if (!m_changed.wait_for(lock, deadline, look)) return std::nullopt;
    Event event = std::move(*found);
    m_events.erase(found);
    return event;
}

std::optional<Event> DBusClient::Wait(const std::string& name, std::chrono::seconds deadline) {
    return Wait([&](const Event& event) { return event.name == name; }, deadline);
}

std::vector<Event> DBusClient::TakeAll() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_events, {});
}

size_t DBusClient::EventsSeen() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_seen;
}

bool DBusClient::WaitUntilDisconnected(std::chrono::seconds deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, deadline, [this] { return m_closed; });
}

bool DBusClient::IsConnected() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_closed;
}

}  // namespace test
