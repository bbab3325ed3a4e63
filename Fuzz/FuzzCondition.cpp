// Condition texts of filters. What passes the checks must run, change nothing, and mean the same to
// the short way (sets of kinds) as to SQLite.
#include <sqlite3.h>

#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "MediaContent/Filter.h"
#include "MediaContent/Schema.h"
#include "Support/Basics.h"

using namespace platform;

namespace {

constexpr int kKinds = 5;

// The set of kinds that SQLite itself takes the text for.
unsigned KindsBySqlite(const std::string& text) {
    static Connection kinds(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    static const bool made = [] {
        kinds.Execute(
            "CREATE TABLE kinds (MEDIA_TYPE INTEGER);"
            "INSERT INTO kinds VALUES (0), (1), (2), (3), (4);");
        return true;
    }();
    MUST(made);
    unsigned mask = 0;
    Query query(kinds, kinds.Prepare("SELECT MEDIA_TYPE FROM kinds WHERE (" + text + "\n)"));
    while (query.Next()) mask |= 1u << query.Int(0);
    return mask;
}

void CheckTypeMask(Connection& connection, const std::string& text) {
    unsigned mask = 0;
    if (!ReadTypeMask(text, mask)) return;
    MUST(mask < 1u << kKinds);
    CheckCondition(connection, kItemColumns, text);
    MUST(KindsBySqlite(text) == mask);
}

bool Passes(Connection& connection, const Columns& columns, const std::string& text) {
    try {
        CheckCondition(connection, columns, text);
        return true;
    } catch (const BadFilter&) {
        return false;
    }
}

void CheckOver(Connection& connection, const Columns& columns, const std::string& text) {
    const int changes = sqlite3_total_changes(connection.Handle());
    if (!Passes(connection, columns, text)) return;
    const std::string sql = "SELECT count(*) FROM " +
                            ViewName(columns, MEDIA_CONTENT_COLLATE_NOCASE) + " WHERE (" + text +
                            "\n)";
    Query query(connection, PrepareGuarded(connection, columns, sql));
    MUST(query.Next());
    MUST(!query.Next());
    MUST(sqlite3_total_changes(connection.Handle()) == changes);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const test::TempFolder folder;
    static const std::unique_ptr<Connection> database = OpenWriter(folder / "media.db");
    const std::string text(AsText(data, size));
    CheckTypeMask(*database, text);
    CheckOver(*database, kItemColumns, text);
    CheckOver(*database, kFolderColumns, text);
    return 0;
}
