#include "PlivHost/Options.h"

#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "Log/Log.h"
#include "PlivHost/Address.h"
#include "PlivHost/GlibPtr.h"

namespace platform {
namespace {

// As given on the command line; null when not given. Texts are released with g_free.
struct RawOptions {
    gchar* address = nullptr;
    gchar* bus = nullptr;
    gchar* usb = nullptr;
    gchar* usbRoot = nullptr;
    gchar* database = nullptr;
    gchar* logLevel = nullptr;
    gchar* extractor = nullptr;
    gboolean help = FALSE;
    gboolean version = FALSE;

    ~RawOptions() {
        for (gchar* text : {address, bus, usb, usbRoot, database, logLevel, extractor})
            g_free(text);
    }
};

using ParserPtr = std::unique_ptr<GOptionContext, ReleaseWith<g_option_context_free>>;

ParserPtr NewParser(RawOptions& raw) {
    const GOptionEntry entries[] = {
        {"address", 0, 0, G_OPTION_ARG_FILENAME, &raw.address,
         "Listen on a private socket, unix:path=SOCKET", "ADDRESS"},
        {"bus", 0, 0, G_OPTION_ARG_STRING, &raw.bus,
         "Serve on a message bus instead, as dorn.ContentsMgr", "session|system"},
        {"usb", 0, 0, G_OPTION_ARG_STRING, &raw.usb,
         "Where sticks come from: the system's devices (default), or a plain folder",
         "udev|directory"},
        {"usb-root", 0, 0, G_OPTION_ARG_FILENAME, &raw.usbRoot,
         "The folder for --usb directory (default /opt/storage/usb)", "DIR"},
        {"database", 0, 0, G_OPTION_ARG_FILENAME, &raw.database, "The media database's file",
         "FILE"},
        {"log-level", 0, 0, G_OPTION_ARG_STRING, &raw.logLevel,
         "trace, progress (default), info, warning, error or none", "LEVEL"},
        {"extractor", 0, 0, G_OPTION_ARG_FILENAME, &raw.extractor,
         "The metadata helper program (default: beside this one)", "FILE"},
        {"help", 'h', 0, G_OPTION_ARG_NONE, &raw.help, "Show this and exit", nullptr},
        {"version", 0, 0, G_OPTION_ARG_NONE, &raw.version, "Show the version and exit", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    ParserPtr parser(g_option_context_new(nullptr));
    g_option_context_set_help_enabled(parser.get(), FALSE);
    g_option_context_set_summary(
        parser.get(), "Manages the photos, videos and music on USB storages for its clients.");
    g_option_context_set_description(
        parser.get(),
        "The default address is unix:path=$XDG_RUNTIME_DIR/contents-mgr/socket, the default\n"
        "database $XDG_STATE_HOME/contents-mgr/media.db. SIGINT and SIGTERM end the service.\n"
        "Exit status: 0 ended as asked, 1 cannot serve, 2 wrong usage.\n");
    g_option_context_add_main_entries(parser.get(), entries, nullptr);
    return parser;
}

std::string TextOf(const gchar* text) {
    return text ? text : "";
}

const char* Variable(const char* name) {
    const char* value = getenv(name);
    return value && *value ? value : nullptr;
}

std::string DefaultDatabase() {
    if (const char* state = Variable("XDG_STATE_HOME"))
        return std::string(state) + "/contents-mgr/media.db";
    if (geteuid() == 0) return "/var/lib/contents-mgr/media.db";
    if (const char* home = Variable("HOME"))
        return std::string(home) + "/.local/state/contents-mgr/media.db";
    return {};
}

// Each parses one option and returns the error text, or empty.

std::string ReadEndpoint(const RawOptions& raw, HostOptions& options) {
    if (raw.address && raw.bus) return "--address and --bus exclude each other";
    if (raw.bus) {
        const std::string bus = raw.bus;
        options.bus = bus == "session" ? BusKind::Session : BusKind::System;
        const bool known = bus == "session" || bus == "system";
        return known ? "" : "--bus takes session or system, not \"" + bus + "\"";
    }
    const std::string address = raw.address ? raw.address : DefaultAddress();
    if (address.empty()) return "XDG_RUNTIME_DIR is not set: give an --address or a --bus";
    options.socketPath = SocketPathOf(address);
    if (!options.socketPath.empty()) return "";
    return "--address takes unix:path=SOCKET with an absolute path, not \"" + address + "\"";
}

std::string ReadUsb(const RawOptions& raw, HostOptions& options) {
    const std::string usb = raw.usb ? raw.usb : "udev";
    if (usb != "udev" && usb != "directory")
        return "--usb takes udev or directory, not \"" + usb + "\"";
    options.usb.backEnd = usb == "udev" ? UsbBackEnd::Udev : UsbBackEnd::Directory;
    if (!raw.usbRoot) return "";
    if (usb == "udev") return "--usb-root goes with --usb directory";
    if (!g_path_is_absolute(raw.usbRoot)) return "--usb-root takes an absolute path";
    options.usb.root = raw.usbRoot;
    return "";
}

std::string ReadDatabase(const RawOptions& raw, HostOptions& options) {
    options.databaseFile = raw.database ? raw.database : DefaultDatabase();
    if (options.databaseFile.empty())
        return "neither XDG_STATE_HOME nor HOME is set: give a --database";
    return "";
}

std::string ReadLogLevel(const RawOptions& raw, HostOptions& options) {
    if (!raw.logLevel) return "";
    options.hasLogPriority = ParseLogLevel(raw.logLevel, options.logPriority);
    if (options.hasLogPriority) return "";
    return "--log-level takes trace, progress, info, warning, error or none, not \"" +
           TextOf(raw.logLevel) + "\"";
}

std::variant<HostOptions, UsageError> Read(const RawOptions& raw) {
    HostOptions options;
    options.help = raw.help;
    options.version = raw.version;
    options.extractor = TextOf(raw.extractor);
    if (options.help || options.version) return options;
    for (const auto read : {ReadEndpoint, ReadUsb, ReadDatabase, ReadLogLevel}) {
        const std::string fault = read(raw, options);
        if (!fault.empty()) return UsageError{fault};
    }
    return options;
}

}  // namespace

std::variant<HostOptions, UsageError> ParseHostOptions(int argc, const char* const* argv) {
    RawOptions raw;
    const ParserPtr parser = NewParser(raw);
    GStrvBuilder* builder = g_strv_builder_new();
    for (int i = 0; i < argc; ++i) g_strv_builder_add(builder, argv[i]);
    gchar** arguments = g_strv_builder_end(builder);
    g_strv_builder_unref(builder);
    ErrorSlot error;
    const bool parsed = g_option_context_parse_strv(parser.get(), &arguments, error.Out());
    const std::string extra = parsed && arguments[0] && arguments[1] ? arguments[1] : "";
    g_strfreev(arguments);
    if (!parsed) return UsageError{error.Text()};
    if (!extra.empty()) return UsageError{"unexpected argument \"" + extra + "\""};
    return Read(raw);
}

std::string HostHelp() {
    RawOptions raw;
    const ParserPtr parser = NewParser(raw);
    const TextPtr help(g_option_context_get_help(parser.get(), TRUE, nullptr));
    return help.get();
}

}  // namespace platform
