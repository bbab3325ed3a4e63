// Storages, counts and pages.
#include <stdio.h>
#include <stdlib.h>

#include "Browse.h"
#include "Failure.h"
#include "Pages.h"
#include "Storages.h"
#include "Table.h"
#include "Text.h"
#include "Verbs.h"

namespace contentsctl {
namespace {

std::string CheckedKind(const std::string& kind) {
    if (kind == "photo" || kind == "video" || kind == "music") return kind;
    throw Misused("a kind is photo, video or music, not \"" + Printable(kind) + "\"",
                  "Folders are shown by \"contentsctl browse\".");
}

int64_t CheckedNumber(const std::string& text, int64_t lowest, int64_t highest) {
    char* end = nullptr;
    const long long value = strtoll(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0' && value >= lowest && value <= highest) return value;
    throw Misused("\"" + Printable(text) + "\" is no number from " + std::to_string(lowest) +
                  " to " + std::to_string(highest));
}

std::string Kilobytes(const Json::Value& storage, const char* key) {
    return HumanSize(static_cast<uint64_t>(NumberOf(storage, key)) * 1024);
}

std::string Size(const Json::Value& item) {
    return HumanSize(static_cast<uint64_t>(NumberOf(item, "size")));
}

std::string Time(const Json::Value& item) {
    return HumanTime(NumberOf(item, "modifiedTime"));
}

// The columns for one kind besides the common ones.
std::string Details(const std::string& kind, const Json::Value& item) {
    if (kind == "photo") return TextOf(item, "width") + "x" + TextOf(item, "height");
    if (kind == "video") return TextOf(item, "album");
    const std::string artist = TextOf(item, "artist");
    const std::string album = TextOf(item, "album");
    return artist.empty() || album.empty() ? artist + album : artist + " / " + album;
}

const char* DetailsTitle(const std::string& kind) {
    if (kind == "photo") return "PIXELS";
    return kind == "video" ? "ALBUM" : "ARTIST / ALBUM";
}

// Prints items of one kind as a table or as JSON lines.
class ItemPrinter {
public:
    ItemPrinter(const Options& options, std::string kind)
        : m_json(options.json),
          m_kind(std::move(kind)),
          m_table({{"TITLE", Align::Left, 32},
                   {DetailsTitle(m_kind), Align::Left, 32},
                   {"SIZE", Align::Right, 0},
                   {"MODIFIED", Align::Left, 0},
                   {"PATH", Align::Left, 0}}) {}

    void Print(const Json::Value& item) {
        ++m_printed;
        if (m_json)
            PrintLine(item);
        else
            m_table.Add({TextOf(item, "title"), Details(m_kind, item), Size(item), Time(item),
                         TextOf(item, "fullPathName")});
    }

    void EndPage() {
        if (!m_json && m_printed > 0) m_table.Flush();
    }

    // The line below the table.
    void Summarise(int64_t total) const {
        if (!m_json)
            printf("%lld of %lld\n", static_cast<long long>(m_printed),
                   static_cast<long long>(total));
    }

private:
    const bool m_json;
    const std::string m_kind;
    Table m_table;
    int64_t m_printed = 0;
};

}  // namespace

void RunStorages(Session& session, const Options& options, const Words&) {
    const auto storages = ListStorages(session);
    Table table({{"NAME", Align::Left, 32},
                 {"TYPE"},
                 {"LABEL", Align::Left, 24},
                 {"FILE SYSTEM"},
                 {"SIZE", Align::Right},
                 {"FREE", Align::Right},
                 {"MOUNT PATH", Align::Left, 0},
                 {"ID", Align::Left, 0}});
    for (const auto& storage : storages) {
        const Json::Value& json = storage.json;
        if (options.json)
            PrintLine(json);
        else
            table.Add({TextOf(json, "name"), TextOf(json, "type"), storage.label,
                       TextOf(json, "fileSystem"), Kilobytes(json, "totalSize"),
                       Kilobytes(json, "availableSize"), storage.mountPath, storage.id});
    }
    if (storages.empty() && !options.json)
        fputs("No storage is attached. Plug one in, or see what --usb the service was given.\n",
              stderr);
    else if (!options.json)
        table.Flush();
}

void RunCount(Session& session, const Options& options, const Words& arguments) {
    const std::string kind = CheckedKind(arguments[1]);
    const Storage storage = FindStorage(session, arguments[0]);
    const Query query(session, options, storage.id, kind);
    if (options.json) {
        Json::Value answer;
        answer["count"] = Json::Int64{query.Count()};
        PrintLine(answer);
    } else {
        printf("%lld\n", static_cast<long long>(query.Count()));
    }
}

void RunQuery(Session& session, const Options& options, const Words& arguments) {
    const std::string kind = CheckedKind(arguments[1]);
    const Storage storage = FindStorage(session, arguments[0]);
    Query query(session, options, storage.id, kind);
    ItemPrinter printer(options, kind);
    query.ForEach(
        options.limit, [&](const Json::Value& item) { printer.Print(item); },
        [&] { printer.EndPage(); });
    printer.Summarise(query.Count());
}

void RunFetch(Session& session, const Options& options, const Words& arguments) {
    const std::string kind = CheckedKind(arguments[1]);
    const int64_t start = CheckedNumber(arguments[2], 0, INT32_MAX);
    const auto count = static_cast<int>(CheckedNumber(arguments[3], 1, kMaxPage));
    const Storage storage = FindStorage(session, arguments[0]);
    Query query(session, options, storage.id, kind);
    if (start > query.Count())
        throw Refused("there are only " + std::to_string(query.Count()) + " items",
                      "Start at 0, the newest item, or further on.");
    ItemPrinter printer(options, kind);
    const Json::Value page = query.Fetch(start, count);
    for (const auto& item : page[Query::ItemsKey(kind)]) printer.Print(item);
    printer.EndPage();
    printer.Summarise(query.Count());
}

void RunBrowse(Session& session, const Options& options, const Words& arguments) {
    const Place place = FindPlace(session, arguments[0]);
    // Check first: the service may wait a minute for the scan of a folder that is missing.
    CheckFolder(place);
    Query query(session, options, place.storage.id, "folder", place.folder);
    Table table(
        {{"TYPE"}, {"SIZE", Align::Right}, {"MODIFIED", Align::Left, 0}, {"NAME", Align::Left, 0}});
    int64_t printed = 0;
    const auto add = [&](Json::Value item, bool isFolder) {
        if (printed >= options.limit) return;
        ++printed;
        if (isFolder) item["type"] = "folder";
        if (options.json)
            PrintLine(item);
        else
            table.Add({TextOf(item, "type"), isFolder ? "" : Size(item), Time(item),
                       TextOf(item, "name") + (isFolder ? "/" : "")});
    };
    FolderWalk walk(
        query, [&](const Json::Value& folder) { add(folder, true); },
        [&](const Json::Value& file) { add(file, false); });
    walk.Run();
    if (options.json) return;
    if (printed > 0) table.Flush();
    printf("%lld of %lld in %s\n", static_cast<long long>(printed),
           static_cast<long long>(query.Count()), Printable(place.folder).c_str());
}

}  // namespace contentsctl
