#include "MediaContent/Schema.h"

#include <stdio.h>
#include <sys/random.h>

#include <filesystem>
#include <iterator>

#include "Log/Log.h"
#include "MediaContent/DatabaseFile.h"

namespace platform {
namespace {

// Paths and names are the file system's own bytes, stored as text so that conditions can compare
// them. Texts and numbers that a file does not have are empty or 0, never null: sorting by any
// column, then by the number, is therefore a total order.
//   storage  number: in the order of first sight; revision: grows with every change of its items;
//            count0 to count4: its items by type
//   folder   path: below the storage's root, "" for the root itself; name: its last part; count0 to
//   count4: items
//            directly in it, by type; below: items in it and in all folders below
//   item     number: in the order of insertion; revision: grows with every change of the item;
//            state: see ItemState; pinned: listed because a client asked, not by the scan's rules
constexpr const char* kTablesOfVersion1 = R"(
CREATE TABLE setting(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE storage(
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    id TEXT NOT NULL UNIQUE,
    identity TEXT NOT NULL UNIQUE,
    mount_path TEXT NOT NULL,
    last_seen INTEGER NOT NULL,
    revision INTEGER NOT NULL DEFAULT 0,
    count0 INTEGER NOT NULL DEFAULT 0, count1 INTEGER NOT NULL DEFAULT 0,
    count2 INTEGER NOT NULL DEFAULT 0, count3 INTEGER NOT NULL DEFAULT 0,
    count4 INTEGER NOT NULL DEFAULT 0);
CREATE TABLE folder(
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    storage INTEGER NOT NULL,
    path TEXT NOT NULL,
    name TEXT NOT NULL,
    below INTEGER NOT NULL DEFAULT 0,
    count0 INTEGER NOT NULL DEFAULT 0, count1 INTEGER NOT NULL DEFAULT 0,
    count2 INTEGER NOT NULL DEFAULT 0, count3 INTEGER NOT NULL DEFAULT 0,
    count4 INTEGER NOT NULL DEFAULT 0,
    UNIQUE(storage, path));
CREATE TABLE item(
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    revision INTEGER NOT NULL DEFAULT 0,
    storage INTEGER NOT NULL,
    folder INTEGER NOT NULL,
    type INTEGER NOT NULL,
    added INTEGER NOT NULL,
    modified INTEGER NOT NULL,
    modified_ns INTEGER NOT NULL,
    size INTEGER NOT NULL,
    inode INTEGER NOT NULL,
    state INTEGER NOT NULL,
    pinned INTEGER NOT NULL,
    name TEXT NOT NULL,
    mime TEXT NOT NULL,
    title TEXT NOT NULL,
    width INTEGER NOT NULL,
    height INTEGER NOT NULL,
    orientation INTEGER NOT NULL,
    bit_rate INTEGER NOT NULL,
    duration INTEGER NOT NULL,
    latitude REAL NOT NULL,
    longitude REAL NOT NULL,
    description TEXT NOT NULL,
    album TEXT NOT NULL,
    artist TEXT NOT NULL,
    genre TEXT NOT NULL,
    composer TEXT NOT NULL,
    copyright TEXT NOT NULL,
    track TEXT NOT NULL,
    UNIQUE(folder, name));
CREATE INDEX item_by_type ON item(storage, type, added);
CREATE INDEX item_by_folder ON item(folder, added);
CREATE INDEX item_by_inode ON item(storage, inode);
)";

// taken: see Metadata; altitude: metres; rating: 1 to 5; has_picture: 0 or 1. All files are read
// again, by the next scan of their storage; until then their items are as they were.
constexpr const char* kTakenAndMore = R"(
ALTER TABLE item ADD COLUMN taken TEXT NOT NULL DEFAULT '';
ALTER TABLE item ADD COLUMN frame_rate REAL NOT NULL DEFAULT 0;
ALTER TABLE item ADD COLUMN altitude REAL NOT NULL DEFAULT 0;
ALTER TABLE item ADD COLUMN camera TEXT NOT NULL DEFAULT '';
ALTER TABLE item ADD COLUMN lens TEXT NOT NULL DEFAULT '';
ALTER TABLE item ADD COLUMN rating INTEGER NOT NULL DEFAULT 0;
ALTER TABLE item ADD COLUMN album_artist TEXT NOT NULL DEFAULT '';
ALTER TABLE item ADD COLUMN disc TEXT NOT NULL DEFAULT '';
ALTER TABLE item ADD COLUMN has_picture INTEGER NOT NULL DEFAULT 0;
UPDATE item SET state = 0;
)";

// Step n upgrades version n to version n + 1; the first starts from an empty file. A released step
// is never changed: a later version adds a step, so an older file goes through the same steps as a
// new one.
constexpr const char* kSteps[] = {
    kTablesOfVersion1,
    // Files that version 1 failed to read, or that took it too long, are tried again.
    "UPDATE item SET state = 0 WHERE state = 2",
    kTakenAndMore,
};
constexpr int64_t kSchemaVersion = std::size(kSteps);

// What conditions may name. C stands for the collation of texts, S for the database's salt.
constexpr const char* kViews = R"(
CREATE VIEW item_columns_C AS SELECT
    i.number AS number, i.storage AS storage, i.folder AS folder,
    ('S-' || i.number) COLLATE C AS MEDIA_ID,
    i.type AS MEDIA_TYPE,
    (s.mount_path || CASE f.path WHEN '' THEN '/' ELSE '/' || f.path || '/' END || i.name)
        COLLATE C AS MEDIA_PATH,
    i.name COLLATE C AS MEDIA_DISPLAY_NAME,
    i.mime COLLATE C AS MEDIA_MIME_TYPE,
    i.size AS MEDIA_SIZE,
    i.added AS MEDIA_ADDED_TIME,
    i.modified AS MEDIA_MODIFIED_TIME,
    i.title COLLATE C AS MEDIA_TITLE,
    i.album COLLATE C AS MEDIA_ALBUM,
    i.artist COLLATE C AS MEDIA_ARTIST,
    i.genre COLLATE C AS MEDIA_GENRE,
    i.composer COLLATE C AS MEDIA_COMPOSER,
    i.width AS MEDIA_WIDTH,
    i.height AS MEDIA_HEIGHT,
    i.latitude AS MEDIA_LATITUDE,
    i.longitude AS MEDIA_LONGITUDE,
    i.altitude AS MEDIA_ALTITUDE,
    i.orientation AS MEDIA_ORIENTATION,
    i.duration AS MEDIA_DURATION,
    i.bit_rate AS MEDIA_BIT_RATE,
    i.frame_rate AS MEDIA_FRAME_RATE,
    i.rating AS MEDIA_RATING,
    i.has_picture AS MEDIA_HAS_PICTURE,
    i.taken COLLATE C AS MEDIA_TAKEN_TIME,
    i.camera COLLATE C AS MEDIA_CAMERA,
    i.lens COLLATE C AS MEDIA_LENS,
    i.album_artist COLLATE C AS MEDIA_ALBUM_ARTIST,
    i.track COLLATE C AS MEDIA_TRACK,
    i.disc COLLATE C AS MEDIA_DISC,
    i.description COLLATE C AS MEDIA_DESCRIPTION
    FROM item AS i CROSS JOIN folder AS f ON f.number = i.folder
    CROSS JOIN storage AS s ON s.number = i.storage;
CREATE VIEW folder_columns_C AS SELECT
    f.number AS number, f.storage AS storage, f.below AS below,
    ('S-f' || f.number) COLLATE C AS FOLDER_ID,
    (s.mount_path || CASE f.path WHEN '' THEN '' ELSE '/' || f.path END) COLLATE C AS FOLDER_PATH,
    f.name COLLATE C AS FOLDER_NAME,
    1 AS FOLDER_STORAGE_TYPE
    FROM folder AS f CROSS JOIN storage AS s ON s.number = f.storage;
)";

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

std::string MakeSalt() {
    uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random)
        random = static_cast<uint64_t>(time(nullptr)) * 0x9e3779b97f4a7c15u;
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(random));
    return text;
}

int64_t Pragma(Connection& connection, const char* sql) {
    Query query(connection, connection.Prepare(sql));
    return query.Next() ? query.Int(0) : 0;
}

void CreateViews(Connection& connection, const std::string& salt) {
    for (const char* collation : {"BINARY", "NOCASE"}) {
        std::string views = Replaced(kViews, "COLLATE C", std::string("COLLATE ") + collation);
        views = Replaced(views, "columns_C", std::string("columns_") + collation);
        views = Replaced(Replaced(views, "'S-'", "'" + salt + "-'"), "'S-f'", "'" + salt + "-f'");
        connection.Execute(views.c_str());
    }
}

// Views hold no data, and would keep a step from changing the tables they name.
void DropViews(Connection& connection) {
    std::string drops;
    {
        Query query(connection, connection.Prepare("SELECT 'DROP VIEW \"' || name || '\";'"
                                                   " FROM sqlite_schema WHERE type = 'view'"));
        while (query.Next()) drops += query.Text(0);
    }
    connection.Execute(drops.c_str());
}

// Runs all missing steps, or none. The file's version number is changed in the same transaction.
void BringUpToDate(Connection& connection) {
    const int64_t version = Pragma(connection, "PRAGMA user_version");
    if (version == kSchemaVersion) return;
    Transaction transaction(connection, Transaction::WRITE);
    DropViews(connection);
    for (int64_t step = version; step < kSchemaVersion; ++step) connection.Execute(kSteps[step]);
    if (version == 0)
        Query(connection, "INSERT INTO setting VALUES('salt', ?)").Bind(MakeSalt()).Run();
    CreateViews(connection, ReadSalt(connection));
    connection.Execute(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str());
    connection.Execute(("PRAGMA application_id = " + std::to_string(kDatabaseApplication)).c_str());
    transaction.Commit();
    if (version > 0)
        PLATFORM_LOG("MEDIA_CONTENT", LOG_INFO,
                     "media database: schema version %lld brought to %lld",
                     static_cast<long long>(version), static_cast<long long>(kSchemaVersion));
}

// Throws when the file does not match its header.
void CheckSchema(Connection& connection) {
    for (const char* sql : {"SELECT * FROM storage LIMIT 1", "SELECT * FROM folder LIMIT 1",
                            "SELECT * FROM item ORDER BY number DESC LIMIT 1"})
        Query(connection, connection.Prepare(sql)).Run();
    if (ReadSalt(connection).empty()) throw DatabaseError(SQLITE_CORRUPT, "no salt");
}

void KeepLogAtClose(Connection& connection, bool keep) {
    sqlite3_db_config(connection.Handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, keep ? 1 : 0, nullptr);
}

// Opens our database, or creates it. A new file gets its tables before it gets a write-ahead log,
// so that other readers find it either empty or ours.
std::unique_ptr<Connection> OpenOurs(const std::string& file) {
    KeepPrivate(file);
    auto connection =
        std::make_unique<Connection>(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    KeepLogAtClose(*connection, true);  // if damaged, it is moved aside unchanged
    BringUpToDate(*connection);
    CheckSchema(*connection);
    KeepLogAtClose(*connection, false);
    connection->Execute(
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA cache_size = -8192;"
        "PRAGMA journal_size_limit = 16777216; PRAGMA wal_autocheckpoint = 4000;"
        "PRAGMA temp_store = MEMORY");
    // Detects a folder without write permission, or a full disk, here rather than in a scan.
    Transaction transaction(*connection, Transaction::WRITE);
    Query(*connection, "INSERT OR REPLACE INTO setting VALUES('opened', ?)")
        .Bind(static_cast<int64_t>(time(nullptr)))
        .Run();
    transaction.Commit();
    return connection;
}

// "" for a file that this version may write to.
std::string WhyNotOurs(const std::string& file) {
    const DatabaseHead head = ReadDatabaseHead(file);
    if (head.kind == DatabaseHead::FOREIGN) return "not a media database";
    if (head.version > kSchemaVersion)
        return "of the newer schema version " + std::to_string(head.version);
    return {};
}

}  // namespace

std::unique_ptr<Connection> OpenWriter(const std::string& file) {
    const std::filesystem::path folder = std::filesystem::path(file).parent_path();
    std::error_code ignored;  // an error with the folder shows when the file is opened
    if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
    if (const std::string why = WhyNotOurs(file); !why.empty()) MoveAside(file, why);
    try {
        return OpenOurs(file);
    } catch (const DatabaseError& error) {
        // The statements are correct: SQLITE_ERROR therefore means a missing table or column.
        if (!error.MeansDamage() && error.Code() != SQLITE_ERROR) throw;
        MoveDamagedAside(file, error.what());
    }
    return OpenOurs(file);
}

std::unique_ptr<Connection> OpenReader(const std::string& file) {
    auto connection = std::make_unique<Connection>(file, SQLITE_OPEN_READONLY);
    connection->Execute(
        "PRAGMA query_only = 1; PRAGMA cache_size = -2048; PRAGMA temp_store = MEMORY");
    return connection;
}

std::string ReadAgainSetting(int64_t storage) {
    return "read again " + std::to_string(storage);
}

std::string ReadSalt(Connection& connection) {
    Query query(connection, "SELECT value FROM setting WHERE name = 'salt'");
    return query.Next() ? query.Text(0) : std::string();
}

}  // namespace platform
