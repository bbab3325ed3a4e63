#include "Session.h"

#include <glib-unix.h>
#include <signal.h>

#include <chrono>
#include <utility>

#include "Failure.h"

namespace contentsctl {
namespace {

using platform::ErrorSlot;
using platform::SourcePtr;
using platform::TextPtr;
using platform::VariantPtr;

constexpr char kName[] = "dorn.ContentsMgr";
constexpr char kPath[] = "/dorn/PlivHost";
constexpr char kInterface[] = "dorn.PlivHost1";
constexpr guint kTickMilliseconds = 250;

[[noreturn]] void NoService(const std::string& where, const std::string& why) {
    throw Misused("no service answers " + where + " (" + why + ")",
                  "Start contents-mgr, or say with --address or --bus where it is.");
}

platform::ObjectPtr<GDBusConnection> ConnectTo(const Options& options) {
    ErrorSlot error;
    TextPtr address(g_strdup(options.address.c_str()));
    int flags = G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT;
    if (!options.bus.empty()) {
        flags |= G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION;
        address.reset(g_dbus_address_get_for_bus_sync(
            options.bus == "system" ? G_BUS_TYPE_SYSTEM : G_BUS_TYPE_SESSION, nullptr,
            error.Out()));
        if (!address) NoService("on the " + options.bus + " bus", error.Text());
    }
    platform::ObjectPtr<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address.get(), static_cast<GDBusConnectionFlags>(flags), nullptr, nullptr, error.Out()));
    if (!connection) NoService(std::string("at ") + address.get(), error.Text());
    return connection;
}

// The callback of a source on the default context that sets a flag each time.
gboolean SetFlag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_CONTINUE;
}

SourcePtr Flagged(GSource* source, bool& flag) {
    g_source_set_callback(source, SetFlag, &flag, nullptr);
    g_source_attach(source, nullptr);
    return SourcePtr(source);
}

}  // namespace

Session::Session(const Options& options) : m_options(options), m_connection(ConnectTo(options)) {
    g_dbus_connection_signal_subscribe(m_connection.get(), options.bus.empty() ? nullptr : kName,
                                       kInterface, "Event", kPath, nullptr,
                                       G_DBUS_SIGNAL_FLAGS_NONE, s_Event, this, nullptr);
    OpenHandle();
}

Session::~Session() {
    g_dbus_connection_close_sync(m_connection.get(), nullptr, nullptr);
}

void Session::s_Event(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                      GVariant* parameters, gpointer data) {
    auto* self = static_cast<Session*>(data);
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(iiss)"))) return;
    gint32 handle = 0;
    gint32 kind = 0;
    const gchar* name = nullptr;
    const gchar* payload = nullptr;
    g_variant_get(parameters, "(ii&s&s)", &handle, &kind, &name, &payload);
    if (handle == self->m_handle) self->m_events.push_back({kind, name, payload});
}

VariantPtr Session::Call(const char* method, GVariant* parameters, const char* resultType) {
    ErrorSlot error;
    VariantPtr result(g_dbus_connection_call_sync(
        m_connection.get(), m_options.bus.empty() ? nullptr : kName, kPath, kInterface, method,
        parameters, G_VARIANT_TYPE(resultType), G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr,
        error.Out()));
    if (result) return result;
    if (error.Is(G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN))
        NoService("on the " + m_options.bus + " bus", error.Text());
    CheckConnection();
    throw Refused("the service refused: " + error.Text());
}

void Session::OpenHandle() {
    const VariantPtr result = Call("Open", g_variant_new("(s)", "contentsctl"), "(i)");
    g_variant_get(result.get(), "(i)", &m_handle);
}

void Session::CheckConnection() const {
    if (g_dbus_connection_is_closed(m_connection.get()))
        throw Refused("the service has gone away",
                      "See its log for the reason and start it again.");
}

bool Session::TryExecute(const std::string& command, const std::vector<std::string>& arguments,
                         std::string& value) {
    std::string four[4];
    for (size_t i = 0; i < 4 && i < arguments.size(); ++i) four[i] = arguments[i];
    const VariantPtr result =
        Call("Execute",
             g_variant_new("(isssss)", m_handle, command.c_str(), four[0].c_str(), four[1].c_str(),
                           four[2].c_str(), four[3].c_str()),
             "(bs)");
    gboolean handled = FALSE;
    const gchar* text = nullptr;
    g_variant_get(result.get(), "(b&s)", &handled, &text);
    value = text;
    return handled;
}

std::string Session::Execute(const std::string& command,
                             const std::vector<std::string>& arguments) {
    std::string value;
    if (!TryExecute(command, arguments, value))
        throw Refused("the service does not take \"" + command + "\" with these arguments");
    return value;
}

void Session::Connect() {
    if (Execute("Connect") != "1")
        throw Refused("the service cannot connect to its media database or to the USB devices",
                      "Its log tells which, and why.");
}

Event Session::Wait(const std::function<bool(const Event&)>& fits,
                    const std::function<void()>& tick) {
    const auto start = std::chrono::steady_clock::now();
    bool ticked = false;
    const SourcePtr ticker = Flagged(g_timeout_source_new(kTickMilliseconds), ticked);
    for (;;) {
        for (auto event = m_events.begin(); event != m_events.end(); ++event) {
            if (!fits(*event)) continue;
            Event found = std::move(*event);
            m_events.erase(event);
            return found;
        }
        CheckConnection();
        if (m_options.timeout > 0 &&
            std::chrono::steady_clock::now() - start > std::chrono::seconds(m_options.timeout))
            throw Refused("no answer came in time", "Wait longer with --timeout SECONDS.");
        g_main_context_iteration(nullptr, TRUE);
        if (std::exchange(ticked, false) && tick) tick();
    }
}

Event Session::Wait(const std::string& name, const std::function<void()>& tick) {
    return Wait([&](const Event& event) { return event.name == name; }, tick);
}

void Session::Listen(const std::function<void(const Event&)>& handler) {
    bool interrupted = false;
    bool ticked = false;
    const SourcePtr sources[] = {Flagged(g_unix_signal_source_new(SIGINT), interrupted),
                                 Flagged(g_unix_signal_source_new(SIGTERM), interrupted),
                                 Flagged(g_timeout_source_new(kTickMilliseconds), ticked)};
    while (!interrupted) {  // NOLINT(bugprone-infinite-loop): a source sets it
        for (; !m_events.empty(); m_events.pop_front()) handler(m_events.front());
        CheckConnection();
        g_main_context_iteration(nullptr, TRUE);
    }
}

std::vector<Scan> Session::Scans() {
    const VariantPtr result = Call("GetScanProgress", nullptr, "(a(ssttb))");
    std::vector<Scan> scans;
    GVariantIter* iterator = nullptr;
    g_variant_get(result.get(), "(a(ssttb))", &iterator);
    const gchar* id = nullptr;
    const gchar* path = nullptr;
    guint64 seen = 0;
    guint64 read = 0;
    gboolean walking = FALSE;
    while (g_variant_iter_next(iterator, "(&s&sttb)", &id, &path, &seen, &read, &walking))
        scans.push_back({id, path, seen, read, walking != FALSE});
    g_variant_iter_free(iterator);
    return scans;
}

}  // namespace contentsctl
