#include "Options.h"

#include <stdlib.h>

#include <memory>

#include "Failure.h"
#include "PlivHost/Address.h"
#include "PlivHost/GlibPtr.h"

namespace contentsctl {
namespace {

using platform::ReleaseWith;
using platform::TextPtr;

constexpr char kSummary[] =
    "Talks to the media contents manager.\n"
    "\n"
    "Commands:\n"
    "  storages                        The storages that are attached\n"
    "  count STORAGE KIND              How many items of a kind it holds\n"
    "  query STORAGE KIND              All of them, newest first\n"
    "  fetch STORAGE KIND START COUNT  One page of them, at most 1000 items\n"
    "  browse PATH                     A folder: its subfolders and media files\n"
    "  register FILE...                Add files of a storage to the database\n"
    "  unregister ID...                Remove items from it (the files stay)\n"
    "  monitor                         Print events as they come, until interrupted\n"
    "  run COMMAND [ARGUMENT...]       Any command of the service as it is, up to 4 arguments\n"
    "\n"
    "KIND is photo, video or music. STORAGE is an id, a label or a mount path, as \"storages\"\n"
    "shows them; PATH is a STORAGE or a folder in one, such as LABEL/DCIM or $USB_DIR/sda1/DCIM.";

constexpr char kDescription[] =
    "The service is looked for where it listens by itself, or at the D-Bus address in\n"
    "CONTENTS_MGR_ADDRESS, or where --address or --bus says.\n"
    "With --json the output is one JSON object a line.\n"
    "Put \"--\" before arguments that begin with a dash.\n"
    "\n"
    "Exit status: 0 done; 1 refused or failed; 2 wrong usage, or no service.\n"
    "\n"
    "Examples:\n"
    "\n"
    "  $ contentsctl storages\n"
    "  $ contentsctl query HOLIDAY photo --limit 20\n"
    "  $ contentsctl browse HOLIDAY/DCIM\n"
    "  $ contentsctl run --wait QUERY_COMPLETED Query STORAGE-ID photo \"\" true\n";

// As given on the command line; texts are released with g_free.
struct Raw {
    gchar* address = nullptr;
    gchar* bus = nullptr;
    gchar* wait = nullptr;
    gboolean json = FALSE;
    gboolean progress = FALSE;
    gboolean noWait = FALSE;
    gboolean help = FALSE;
    gboolean version = FALSE;
    gint64 limit = INT64_MAX;
    gint timeout = 120;

    ~Raw() {
        for (gchar* text : {address, bus, wait}) g_free(text);
    }
};

using ParserPtr = std::unique_ptr<GOptionContext, ReleaseWith<g_option_context_free>>;

ParserPtr NewParser(Raw& raw) {
    const GOptionEntry entries[] = {
        {"address", 'a', 0, G_OPTION_ARG_FILENAME, &raw.address, "The service's D-Bus address",
         "ADDRESS"},
        {"bus", 'b', 0, G_OPTION_ARG_STRING, &raw.bus, "The message bus that it is on",
         "session|system"},
        {"json", 'j', 0, G_OPTION_ARG_NONE, &raw.json, "Print JSON, one object a line", nullptr},
        {"limit", 'n', 0, G_OPTION_ARG_INT64, &raw.limit, "Print at most N items", "N"},
        {"no-wait", 0, 0, G_OPTION_ARG_NONE, &raw.noWait,
         "Take what is known now, do not wait for a scan", nullptr},
        {"timeout", 't', 0, G_OPTION_ARG_INT, &raw.timeout,
         "Wait for an event at most so long (default 120, 0 for ever)", "SECONDS"},
        {"progress", 0, 0, G_OPTION_ARG_NONE, &raw.progress,
         "Show progress even when standard error is no terminal", nullptr},
        {"wait", 'w', 0, G_OPTION_ARG_STRING, &raw.wait, "run: wait for this event and print it",
         "EVENT"},
        {"help", 'h', 0, G_OPTION_ARG_NONE, &raw.help, "Show this and exit", nullptr},
        {"version", 0, 0, G_OPTION_ARG_NONE, &raw.version, "Show the version and exit", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    ParserPtr parser(g_option_context_new("COMMAND [ARGUMENT...]"));
    g_option_context_set_help_enabled(parser.get(), FALSE);
    g_option_context_set_summary(parser.get(), kSummary);
    g_option_context_set_description(parser.get(), kDescription);
    g_option_context_add_main_entries(parser.get(), entries, nullptr);
    return parser;
}

std::string TextOr(const gchar* text, const std::string& otherwise) {
    return text ? text : otherwise;
}

std::string AddressOf(const Raw& raw) {
    if (raw.bus) return {};
    const char* variable = getenv("CONTENTS_MGR_ADDRESS");
    const std::string usual = variable && *variable ? variable : platform::DefaultAddress();
    const std::string address = TextOr(raw.address, usual);
    if (address.empty())
        throw Misused("XDG_RUNTIME_DIR is not set", "Give an --address or a --bus.");
    if (!g_dbus_is_address(address.c_str()))
        throw Misused("\"" + address + "\" is no D-Bus address",
                      "Write it like unix:path=/run/contents-mgr/socket.");
    return address;
}

void Check(const Raw& raw) {
    const std::string bus = TextOr(raw.bus, "session");
    if (bus != "session" && bus != "system")
        throw Misused("--bus takes session or system, not \"" + bus + "\"");
    if (raw.bus && raw.address) throw Misused("--address and --bus exclude each other");
    if (raw.limit < 0 || raw.timeout < 0) throw Misused("numbers of options are not negative");
}

// Returns the words that are not options; throws when an option is invalid.
std::vector<std::string> Parse(GOptionContext* parser, int argc, char** argv) {
    gchar** rest = g_new0(gchar*, static_cast<gsize>(argc) + 1);
    for (int i = 0; i < argc; ++i) rest[i] = g_strdup(argv[i]);
    platform::ErrorSlot error;
    const bool parsed = g_option_context_parse_strv(parser, &rest, error.Out());
    std::vector<std::string> words;
    bool ended = false;  // "--" was found
    for (gchar** word = rest; parsed && *word; ++word) {
        const bool mark = !ended && std::string(*word) == "--";
        ended = ended || mark;
        if (word != rest && !mark) words.emplace_back(*word);
    }
    g_strfreev(rest);
    if (!parsed)
        throw Misused(error.Text(),
                      "See --help; put \"--\" before arguments that begin with a dash.");
    return words;
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
    Raw raw;
    const ParserPtr parser = NewParser(raw);
    Options options;
    options.words = Parse(parser.get(), argc, argv);
    options.help = raw.help;
    options.version = raw.version;
    if (options.help || options.version) return options;
    Check(raw);
    options.address = AddressOf(raw);
    options.bus = TextOr(raw.bus, "");
    options.json = raw.json;
    options.progress = raw.progress;
    options.noWait = raw.noWait;
    options.limit = raw.limit;
    options.timeout = raw.timeout;
    options.waitFor = TextOr(raw.wait, "");
    return options;
}

std::string Help() {
    Raw raw;
    const ParserPtr parser = NewParser(raw);
    const TextPtr help(g_option_context_get_help(parser.get(), TRUE, nullptr));
    return help.get();
}

}  // namespace contentsctl
