// Registration, events and bare commands.
#include <gio/gio.h>
#include <stdio.h>

#include <algorithm>
#include <iterator>

#include "EventText.h"
#include "Failure.h"
#include "Json.h"
#include "Output.h"
#include "PlivHost/GlibPtr.h"
#include "Table.h"
#include "Text.h"
#include "Verbs.h"

namespace contentsctl {
namespace {

// The service requires absolute paths, as the system or as clients see them.
std::string AbsolutePath(const std::string& path) {
    if (path.compare(0, 8, "$USB_DIR") == 0) return path;
    const platform::TextPtr whole(g_canonicalize_filename(path.c_str(), nullptr));
    return whole.get();
}

// Registers or unregisters and returns the event's payload; throws when the service refuses.
Json::Value Change(Session& session, const char* command, const std::string& list,
                   const char* event) {
    if (session.Execute(command, {"", list}) == "0")
        throw Refused("the service refused to change its database", "Its log tells why.");
    return ParseJson(session.Wait(event).payload);
}

void FailForThose(const Json::Value& failed, const char* what, const char* hint) {
    for (const auto& text : failed)
        fprintf(stderr, "%s: %s\n", what, Printable(text.asString()).c_str());
    if (!failed.empty())
        throw Refused(
            std::to_string(failed.size()) + (failed.size() == 1 ? " item" : " items") + " failed",
            hint);
}

std::string TimeNow(const char* format) {
    GDateTime* time = g_date_time_new_now_local();
    const platform::TextPtr text(g_date_time_format(time, format));
    g_date_time_unref(time);
    return text.get();
}

// Returns a payload that is an object as such, any other as text.
Json::Value ToJson(const Event& event) {
    Json::Value json;
    json["time"] = TimeNow("%Y-%m-%dT%H:%M:%S.%f%:z");
    json["name"] = event.name;
    json["kind"] = event.kind;
    json["payload"] = event.payload;
    if (event.payload.compare(0, 1, "{") == 0) json["payload"] = ParseJson(event.payload);
    return json;
}

// The payload unchanged, on one line.
std::string RawText(const Event& event) {
    std::string payload = event.payload;
    while (!payload.empty() && payload.back() == '\n') payload.pop_back();
    return Printable(payload);
}

void PrintEvent(const Event& event, bool json, const std::string& text) {
    if (json)
        PrintLine(ToJson(event));
    else
        printf("%s  %s  %s\n", TimeNow("%H:%M:%S").c_str(), Printable(event.name).c_str(),
               text.c_str());
    FlushOutput();
}

// For these commands 0 means refused; for others 0 is a count, or their only return value.
bool MeansRefused(const std::string& command, const std::string& value) {
    static constexpr const char* kCommands[] = {
        "Connect", "Disconnect",       "GetStorages",       "Query",
        "Fetch",   "RegisterContents", "UnregisterContents"};
    return value == "0" &&
           std::find(std::begin(kCommands), std::end(kCommands), command) != std::end(kCommands);
}

constexpr Verb kVerbs[] = {
    {"storages", "", 0, 0, RunStorages},
    {"count", "STORAGE KIND", 2, 2, RunCount},
    {"query", "STORAGE KIND", 2, 2, RunQuery},
    {"fetch", "STORAGE KIND START COUNT", 4, 4, RunFetch},
    {"browse", "PATH", 1, 1, RunBrowse},
    {"register", "FILE...", 1, SIZE_MAX, RunRegister},
    {"unregister", "ID...", 1, SIZE_MAX, RunUnregister},
    {"monitor", "", 0, 0, RunMonitor},
    {"run", "COMMAND [ARGUMENT...] (4 arguments at most)", 1, 5, RunCommand},
};

}  // namespace

const Verb* FindVerb(const std::string& name) {
    for (const auto& verb : kVerbs)
        if (name == verb.name) return &verb;
    return nullptr;
}

void RunRegister(Session& session, const Options& options, const Words& arguments) {
    Words paths;
    for (const auto& path : arguments) paths.push_back(AbsolutePath(path));
    const Json::Value payload =
        Change(session, "RegisterContents", ListArgument("fullpaths", paths),
               "CONTETNS_REGISTER_COMPLETED");
    if (options.json) PrintLine(payload);
    Table table({{"ID", Align::Left, 0}, {"PATH", Align::Left, 0}});
    for (const auto& item : payload["succeeded"])
        table.Add({TextOf(item, "id"), TextOf(item, "path")});
    if (!options.json && !payload["succeeded"].empty()) table.Flush();
    FailForThose(payload["failed"], "not registered",
                 "Only regular files inside a mounted storage can be registered.");
}

void RunUnregister(Session& session, const Options& options, const Words& arguments) {
    const Json::Value payload =
        Change(session, "UnregisterContents", ListArgument("ids", arguments),
               "CONTENTS_UNREGISTER_COMPLETED");
    if (options.json)
        PrintLine(payload);
    else
        for (const auto& id : payload["succeeded"])
            printf("removed %s\n", Printable(id.asString()).c_str());
    FailForThose(payload["failed"], "not removed",
                 "\"contentsctl --json query\" shows the ids that there are.");
}

void RunMonitor(Session& session, const Options& options, const Words&) {
    fputs("Listening; interrupt to end.\n", stderr);
    session.Listen([&](const Event& event) { PrintEvent(event, options.json, EventText(event)); });
}

void RunCommand(Session& session, const Options& options, const Words& arguments) {
    std::string value;
    const bool handled =
        session.TryExecute(arguments[0], {arguments.begin() + 1, arguments.end()}, value);
    if (options.json) {
        Json::Value answer;
        answer["handled"] = handled;
        answer["returnValue"] = value;
        PrintLine(answer);
    } else if (handled) {
        while (!value.empty() && value.back() == '\n') value.pop_back();
        puts(Printable(value).c_str());
    }
    if (!handled)
        throw Refused(
            "the service does not take \"" + Printable(arguments[0]) + "\" with these arguments",
            "Names and words are case-sensitive.");
    if (MeansRefused(arguments[0], value))
        throw Refused("the service refused \"" + arguments[0] + "\" with these arguments",
                      "Its log may tell why.");
    if (options.waitFor.empty()) return;
    const Event event = session.Wait(options.waitFor);
    PrintEvent(event, options.json, RawText(event));
}

}  // namespace contentsctl
