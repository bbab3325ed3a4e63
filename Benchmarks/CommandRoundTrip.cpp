// One command's round trip, against an echo method on the same kind of connection.
//
// A child process serves both: the plugin through the host, and a bare GDBus object that answers
// at once on its own loop. The parent asks them in turns, so that both meet the same machine.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Log/Log.h"
#include "PlivAppContentsMgr.h"
#include "PlivHost/GlibPtr.h"
#include "PlivHost/Server.h"

namespace {

using platform::ObjectPtr;
using platform::VariantPtr;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 60;
constexpr int kCallsPerRound = 200;

constexpr char kEchoPath[] = "/echo";
constexpr char kEchoInterface[] = "bench.Echo";
constexpr char kEchoXml[] =
    "<node><interface name='bench.Echo'><method name='Echo'>"
    "<arg type='i' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='b' direction='out'/><arg type='s' direction='out'/>"
    "</method></interface></node>";

[[noreturn]] void Die(const std::string& why) {
    fprintf(stderr, "CommandRoundTrip: %s\n", why.c_str());
    exit(1);
}

void Echo(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
          GDBusMethodInvocation* invocation, gpointer) {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(bs)", TRUE, "0"));
}

gboolean Welcome(GDBusServer*, GDBusConnection* connection, gpointer info) {
    static const GDBusInterfaceVTable vtable{Echo, nullptr, nullptr, {}};
    g_object_ref(connection);  // for as long as the process
    auto* node = static_cast<GDBusNodeInfo*>(info);
    g_dbus_connection_register_object(connection, kEchoPath, node->interfaces[0], &vtable, nullptr,
                                      nullptr, nullptr);
    return TRUE;
}

void ServeEcho(const std::string& path) {
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    const platform::TextPtr guid(g_dbus_generate_guid());
    GDBusServer* server =
        g_dbus_server_new_sync(("unix:path=" + path).c_str(), G_DBUS_SERVER_FLAGS_NONE, guid.get(),
                               nullptr, nullptr, nullptr);
    if (!server) Die("no echo server");
    g_signal_connect(server, "new-connection", G_CALLBACK(Welcome),
                     g_dbus_node_info_new_for_xml(kEchoXml, nullptr));
    g_dbus_server_start(server);
    g_main_loop_run(g_main_loop_new(context, FALSE));
}

[[noreturn]] void ServeBoth(const std::string& folder) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    platform::SetLogPriority(1000);
    dorn::CPlivAppContentsMgr app;
    platform::ServerOptions options;
    options.socketPath = folder + "/host";
    platform::Server server(app, options);
    std::thread(ServeEcho, folder + "/echo").detach();
    server.Run();
    _exit(0);
}

ObjectPtr<GDBusConnection> Connect(const std::string& path) {
    for (int i = 0; i < 500; ++i) {
        ObjectPtr<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
            ("unix:path=" + path).c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
            nullptr, nullptr));
        if (connection) return connection;
        g_usleep(10000);
    }
    Die("nobody serves at " + path);
}

VariantPtr Call(GDBusConnection* connection, const char* path, const char* interface,
                const char* method, GVariant* parameters) {
    VariantPtr result(g_dbus_connection_call_sync(connection, nullptr, path, interface, method,
                                                  parameters, nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
                                                  nullptr, nullptr));
    if (!result) Die(std::string(method) + " failed");
    return result;
}

GVariant* CommandOf(int handle) {
    return g_variant_new("(isssss)", handle, "GetSyncState", "", "", "", "");
}

template <typename Once>
double MicrosecondsACall(Once once) {
    const auto start = Clock::now();
    for (int i = 0; i < kCallsPerRound; ++i) once();
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count() / kCallsPerRound;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void Measure(const std::string& folder) {
    const auto host = Connect(folder + "/host");
    const auto echo = Connect(folder + "/echo");
    constexpr char kHostPath[] = "/dorn/PlivHost";
    constexpr char kHostInterface[] = "dorn.PlivHost1";
    gint32 handle = 0;
    g_variant_get(
        Call(host.get(), kHostPath, kHostInterface, "Open", g_variant_new("(s)", "bench")).get(),
        "(i)", &handle);
    const auto command = [&] {
        Call(host.get(), kHostPath, kHostInterface, "Execute", CommandOf(handle));
    };
    const auto bare = [&] {
        Call(echo.get(), kEchoPath, kEchoInterface, "Echo", CommandOf(handle));
    };
    std::vector<double> commands;
    std::vector<double> echoes;
    MicrosecondsACall(command);
    MicrosecondsACall(bare);
    for (int round = 0; round < kRounds; ++round) {
        commands.push_back(MicrosecondsACall(command));
        echoes.push_back(MicrosecondsACall(bare));
    }
    const double commandTime = Median(commands);
    const double echoTime = Median(echoes);
    printf("command over the host  %8.1f us\n", commandTime);
    printf("echo method            %8.1f us\n", echoTime);
    printf("ratio                  %8.2f  (aim: at most 1.3)\n", commandTime / echoTime);
}

}  // namespace

int main() {
    char folder[] = "/tmp/cm-round-trip-XXXXXX";
    if (!mkdtemp(folder)) Die("no temporary folder");
    const pid_t child = fork();
    if (child == 0) ServeBoth(folder);
    Measure(folder);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::filesystem::remove_all(folder);
    return 0;
}
