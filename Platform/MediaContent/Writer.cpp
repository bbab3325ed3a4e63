#include "MediaContent/Writer.h"

#include <algorithm>
#include <utility>

#include "MediaContent/Paths.h"
#include "MediaContent/Room.h"
#include "MediaContent/Schema.h"

namespace platform {
namespace {

constexpr size_t kMaxKnownFolders = 4096;
// How long the log's move waits for readers, which hold the pages that they see: as long as moving
// one page takes, or, where the disk is about to be full, as long as a reader may take.
constexpr int kPageMs = 100;
constexpr int kReadersMs = 5000;
constexpr int kPurgeBatch = 500;  // items per transaction

constexpr const char* kRow =
    "SELECT number, storage, folder, name, title, mime, type, size, modified, modified_ns, inode, "
    "pinned FROM item ";

// The columns shared by Insert and Update, in the order in which BindContent binds them.
constexpr const char* kContentColumns[] = {
    "type",        "modified",     "modified_ns", "size",     "inode",     "state",
    "pinned",      "name",         "mime",        "title",    "width",     "height",
    "orientation", "bit_rate",     "duration",    "latitude", "longitude", "description",
    "album",       "artist",       "genre",       "composer", "copyright", "track",
    "disc",        "album_artist", "taken",       "camera",   "lens",      "rating",
    "has_picture", "frame_rate",   "altitude"};

// The change and the title must stay valid until the query has run.
void BindContent(Query& query, const Change& change, const std::string& title, bool pinned) {
    const Metadata& meta = change.metadata;
    query.Bind(static_cast<int64_t>(change.type)).Bind(change.facts.modified);
    query.Bind(change.facts.modifiedNs).Bind(change.facts.size).Bind(change.facts.inode);
    query.Bind(static_cast<int64_t>(change.state)).Bind(static_cast<int64_t>(pinned));
    query.BindInPlace(change.name).BindInPlace(change.mime).BindInPlace(title);
    for (const int32_t value :
         {meta.width, meta.height, meta.orientation, meta.bitRate, meta.durationMs})
        query.Bind(static_cast<int64_t>(value));
    query.Bind(meta.hasPosition ? meta.latitude : 0.0);
    query.Bind(meta.hasPosition ? meta.longitude : 0.0);
    for (const std::string* text :
         {&meta.description, &meta.album, &meta.artist, &meta.genre, &meta.composer,
          &meta.copyright, &meta.trackNumber, &meta.discNumber, &meta.albumArtist, &meta.taken,
          &meta.camera, &meta.lens})
        query.BindInPlace(*text);
    query.Bind(static_cast<int64_t>(meta.rating)).Bind(static_cast<int64_t>(meta.hasPicture));
    query.Bind(meta.framesPer1000s / 1000.0).Bind(meta.altitude);
}

std::string TitleOf(const Change& change) {
    return change.metadata.title.empty() ? TitleFromName(change.name) : change.metadata.title;
}

std::string InsertText() {
    std::string columns, marks;
    for (const char* column : kContentColumns) {
        columns += std::string(", ") + column;
        marks += ", ?";
    }
    return "INSERT INTO item(storage, folder, added" + columns + ") VALUES(?, ?, ?" + marks +
           ") ON CONFLICT(folder, name) DO NOTHING";
}

std::string UpdateText() {
    std::string columns;
    for (const char* column : kContentColumns) columns += std::string(", ") + column + " = ?";
    return "UPDATE item SET revision = revision + 1, folder = ?" + columns + " WHERE number = ?";
}

}  // namespace

Writer::Writer(std::unique_ptr<Connection> connection)
    : m_connection(std::move(connection)), m_salt(ReadSalt(*m_connection)) {}

template <typename Body>
void Writer::InOneTransaction(Body body) {
    try {
        Transaction transaction(*m_connection, Transaction::WRITE);
        body();
        transaction.Commit();
    } catch (...) {
        m_folders.clear();  // may name rows that were rolled back
        m_taken.clear();
        throw;
    }
}

// `body` may run several times: on a full disk, again after each step that frees space.
template <typename Body>
void Writer::InTransaction(Body body) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (bool logIsMoved = false;;) {
        try {
            return InOneTransaction(body);
        } catch (const DatabaseError& error) {
            if (error.Code() != SQLITE_FULL) throw;
            const bool room =
                (!std::exchange(logIsMoved, true) && MoveLog(kReadersMs)) || PurgeOldest();
            if (!room) throw;
        }
    }
}

int64_t Writer::RecordStorage(const std::string& id, const std::string& identity,
                              const std::string& mountPath, int64_t now) {
    int64_t number = 0;
    InTransaction([&] {
        Query(*m_connection,
              "INSERT INTO storage(id, identity, mount_path, last_seen) VALUES(?, ?, ?, ?)"
              " ON CONFLICT(identity) DO UPDATE SET mount_path = excluded.mount_path,"
              " last_seen = excluded.last_seen")
            .Bind(id)
            .Bind(identity)
            .Bind(mountPath)
            .Bind(now)
            .Run();
        Query query(*m_connection, "SELECT number FROM storage WHERE identity = ?");
        query.Bind(identity);
        if (query.Next()) number = query.Int(0);
        m_present.insert(number);
    });
    return number;
}

void Writer::StorageWent(int64_t storage, int64_t now) {
    InTransaction([&] {
        m_present.erase(storage);
        Query(*m_connection, "UPDATE storage SET last_seen = ? WHERE number = ?")
            .Bind(now)
            .Bind(storage)
            .Run();
    });
}

std::vector<Done> Writer::Apply(int64_t storage, const std::vector<Change>& changes, int64_t now) {
    Batch batch;
    InTransaction([&] {
        batch = {storage, now, {}, {}, {}};
        int64_t& taken = TakenBy(storage);
        taken -= UsedBytes();
        for (const Change& change : changes) ApplyOne(batch, change);
        StoreCounts(batch);
        taken += UsedBytes();
    });
    return std::move(batch.done);
}

void Writer::ApplyOne(Batch& batch, const Change& change) {
    Row row;
    switch (change.kind) {
        case Change::PUT:
            Put(batch, change);
            break;
        case Change::MOVE:
            Move(batch, change);
            break;
        case Change::REMOVE:
            if (FindByNumber(change.number, row) && row.storage == batch.storage &&
                row.name == change.name && FolderPath(row.folder) == change.folder)
                RemoveRow(batch, row);
            break;
        case Change::INODE:
            Query(*m_connection, "UPDATE item SET inode = ? WHERE number = ?")
                .Bind(change.facts.inode)
                .Bind(change.number)
                .Run();
            break;
    }
}

void Writer::Put(Batch& batch, const Change& change) {
    const int64_t folder = FolderNumber(batch.storage, change.folder);
    const std::string path = JoinPath(change.folder, change.name);
    Row row;
    const bool moved = change.number != 0 && !FindByPlace(folder, change.name, row) &&
                       FindByNumber(change.number, row) && row.storage == batch.storage;
    int64_t number = 0;
    if (!moved && Insert(batch, folder, change, number)) {
        Count(batch, change.folder, change.type, 1);
        batch.done.push_back({MEDIA_CONTENT_INSERT, change.type, number, path, change.mime});
        return;
    }
    if (!moved && !FindByPlace(folder, change.name, row)) return;
    Update(row, folder, change);
    Count(batch, FolderPath(row.folder), row.type, -1);
    Count(batch, change.folder, change.type, 1);
    batch.done.push_back({MEDIA_CONTENT_UPDATE, change.type, row.number, path, change.mime});
}

void Writer::Move(Batch& batch, const Change& change) {
    Row row, there;
    if (!FindByNumber(change.number, row) || row.storage != batch.storage) return;
    const int64_t folder = FolderNumber(batch.storage, change.folder);
    if (FindByPlace(folder, change.name, there)) return;  // another caller has added it meanwhile
    const std::string title =
        row.title == TitleFromName(row.name) ? TitleFromName(change.name) : row.title;
    Query(*m_connection,
          "UPDATE item SET revision = revision + 1, folder = ?, name = ?, title = ?, mime = ?"
          " WHERE number = ?")
        .Bind(folder)
        .Bind(change.name)
        .Bind(title)
        .Bind(change.mime)
        .Bind(row.number)
        .Run();
    Count(batch, FolderPath(row.folder), row.type, -1);
    Count(batch, change.folder, row.type, 1);
    batch.done.push_back({MEDIA_CONTENT_UPDATE, row.type, row.number,
                          JoinPath(change.folder, change.name), change.mime});
}

void Writer::RemoveRow(Batch& batch, const Row& row) {
    Query(*m_connection, "DELETE FROM item WHERE number = ?").Bind(row.number).Run();
    const std::string folder = FolderPath(row.folder);
    Count(batch, folder, row.type, -1);
    batch.done.push_back(
        {MEDIA_CONTENT_DELETE, row.type, row.number, JoinPath(folder, row.name), row.mime});
}

bool Writer::Remove(int64_t number, int64_t& storage, Done& done) {
    bool found = false;
    InTransaction([&] {
        Row row;
        found = FindByNumber(number, row);
        if (!found) return;
        storage = row.storage;
        Batch batch{row.storage, 0, {}, {}, {}};
        RemoveRow(batch, row);
        StoreCounts(batch);
        done = batch.done.front();
    });
    return found;
}

// False when there is an item at this place.
bool Writer::Insert(const Batch& batch, int64_t folder, const Change& change, int64_t& number) {
    static const std::string text = InsertText();
    Query query(*m_connection, text);
    query.Bind(batch.storage).Bind(folder).Bind(batch.now);
    const std::string title = TitleOf(change);
    BindContent(query, change, title, change.pinned);
    query.Run();
    number = m_connection->LastInsertedRow();
    return m_connection->ChangedRows() > 0;
}

void Writer::Update(const Row& row, int64_t folder, const Change& change) {
    static const std::string text = UpdateText();
    Query query(*m_connection, text);
    query.Bind(folder);
    const std::string title = TitleOf(change);
    BindContent(query, change, title, change.pinned || row.pinned);
    query.Bind(row.number).Run();
}

void Writer::Count(Batch& batch, const std::string& folder, media_content_type_e type, int by) {
    batch.items[static_cast<size_t>(type)] += by;
    Counts& counts = batch.folders[folder];
    counts.direct[static_cast<size_t>(type)] += by;
    counts.here += by;
}

// What lies in a folder also lies below each of its ancestors.
void Writer::SumUp(Batch& batch) {
    for (const auto& [path, counts] : std::map<std::string, Counts>(batch.folders))
        for (std::string at = path;; at = ParentPath(at)) {
            batch.folders[at].below += counts.here;
            if (at.empty()) break;
        }
}

void Writer::StoreCounts(Batch& batch) {
    if (batch.done.empty()) return;
    SumUp(batch);
    for (const auto& [path, counts] : batch.folders) {
        Query query(*m_connection,
                    "UPDATE folder SET below = below + ?, count0 = count0 + ?, count1 = count1 + ?,"
                    " count2 = count2 + ?, count3 = count3 + ?, count4 = count4 + ?"
                    " WHERE number = ?");
        query.Bind(counts.below);
        for (const int64_t count : counts.direct) query.Bind(count);
        query.Bind(FolderNumber(batch.storage, path)).Run();
    }
    Query query(*m_connection,
                "UPDATE storage SET revision = revision + 1, count0 = count0 + ?,"
                " count1 = count1 + ?, count2 = count2 + ?, count3 = count3 + ?,"
                " count4 = count4 + ? WHERE number = ?");
    for (const int64_t count : batch.items) query.Bind(count);
    query.Bind(batch.storage).Run();
}

bool Writer::ReadRow(Query& query, Row& row) {
    if (!query.Next()) return false;
    row.number = query.Int(0);
    row.storage = query.Int(1);
    row.folder = query.Int(2);
    row.name = query.Text(3);
    row.title = query.Text(4);
    row.mime = query.Text(5);
    row.type = static_cast<media_content_type_e>(query.Int(6));
    row.facts = {query.Int(7), query.Int(8), query.Int(9), query.Int(10)};
    row.pinned = query.Int(11) != 0;
    return true;
}

bool Writer::FindByPlace(int64_t folder, const std::string& name, Row& row) {
    static const std::string text = std::string(kRow) + "WHERE folder = ? AND name = ?";
    Query query(*m_connection, text);
    query.Bind(folder).Bind(name);
    return ReadRow(query, row);
}

bool Writer::FindByNumber(int64_t number, Row& row) {
    static const std::string text = std::string(kRow) + "WHERE number = ?";
    Query query(*m_connection, text);
    query.Bind(number);
    return ReadRow(query, row);
}

std::string Writer::FolderPath(int64_t number) {
    Query query(*m_connection, "SELECT path FROM folder WHERE number = ?");
    query.Bind(number);
    return query.Next() ? query.Text(0) : std::string();
}

// Creates the folder's record, and those of its ancestors, if missing.
int64_t Writer::FolderNumber(int64_t storage, const std::string& path) {
    std::unordered_map<std::string, int64_t>& folders = m_folders[storage];
    if (const auto known = folders.find(path); known != folders.end()) return known->second;
    int64_t number = 0;
    {
        Query query(*m_connection, "SELECT number FROM folder WHERE storage = ? AND path = ?");
        query.Bind(storage).Bind(path);
        if (query.Next()) number = query.Int(0);
    }
    if (number == 0) {
        if (!path.empty()) FolderNumber(storage, ParentPath(path));
        Query(*m_connection, "INSERT INTO folder(storage, path, name) VALUES(?, ?, ?)")
            .Bind(storage)
            .Bind(path)
            .Bind(LastPart(path))
            .Run();
        number = m_connection->LastInsertedRow();
    }
    if (folders.size() >= kMaxKnownFolders) folders.clear();
    folders[path] = number;
    return number;
}

void Writer::SetToBeReadAgain(int64_t storage, bool again) {
    InTransaction([&] {
        Query(*m_connection, again ? "INSERT OR REPLACE INTO setting VALUES(?, '1')"
                                   : "DELETE FROM setting WHERE name = ?")
            .Bind(ReadAgainSetting(storage))
            .Run();
    });
}

void Writer::DropEmptyFolders(int64_t storage) {
    InTransaction([&] {
        Query(*m_connection, "DELETE FROM folder WHERE storage = ? AND below = 0")
            .Bind(storage)
            .Run();
        if (m_connection->ChangedRows() > 0) m_folders.clear();
    });
}

bool Writer::Purge(int64_t storage, int64_t before, int limit) {
    bool finished = true;
    InTransaction([&] {
        Query query(*m_connection, "SELECT 1 FROM storage WHERE number = ? AND last_seen < ?");
        finished = !query.Bind(storage).Bind(before).Next() || m_present.count(storage) > 0 ||
                   PurgeSome(storage, limit);
    });
    return finished;
}

// True when nothing of the storage is left.
bool Writer::PurgeSome(int64_t storage, int limit) {
    std::vector<Row> rows;
    m_taken.erase(storage);
    {
        Query query(*m_connection, std::string(kRow) + "WHERE storage = ? LIMIT ?");
        query.Bind(storage).Bind(static_cast<int64_t>(limit));
        for (Row row; ReadRow(query, row);) rows.push_back(row);
    }
    Batch batch{storage, 0, {}, {}, {}};
    for (const Row& row : rows) RemoveRow(batch, row);
    StoreCounts(batch);
    if (rows.size() == static_cast<size_t>(limit)) return false;
    for (const char* sql :
         {"DELETE FROM folder WHERE storage = ?", "DELETE FROM storage WHERE number = ?"})
        Query(*m_connection, sql).Bind(storage).Run();
    Query(*m_connection, "DELETE FROM setting WHERE name = ?")
        .Bind(ReadAgainSetting(storage))
        .Run();
    m_folders.clear();
    return true;
}

// ---- room ---------------------------------------------------------------------------------------

// Forgets some items of the storage that has been absent longest. False when none is absent, or the
// disk lacks the space even for that. Smaller steps when space is short: removing needs space too.
bool Writer::PurgeOldest() {
    int64_t oldest = 0;
    {
        Query query(*m_connection, "SELECT number FROM storage ORDER BY last_seen, number");
        while (oldest == 0 && query.Next())
            if (m_present.count(query.Int(0)) == 0) oldest = query.Int(0);
    }
    for (int limit = kPurgeBatch; oldest != 0 && limit > 0; limit /= 8) {
        try {
            InOneTransaction([&] { PurgeSome(oldest, limit); });
            MoveLog(kReadersMs);
            return true;
        } catch (const DatabaseError& error) {
            if (error.Code() != SQLITE_FULL) throw;
        }
    }
    return false;
}

SpaceLeft Writer::FindSpace(int64_t storage) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const Room room = MeasureRoom(sqlite3_db_filename(m_connection->Handle(), "main"));
    if (room.logIsLong) MoveLog(kReadersMs);
    while (UsedBytes() >= room.bound)
        if (!PurgeOldest()) return SpaceLeft::None;
    return TakenBy(storage) >= room.share ? SpaceLeft::ShareTaken : SpaceLeft::Some;
}

int64_t Writer::Ask(const char* sql) {
    Query query(*m_connection, sql);
    return query.Next() ? query.Int(0) : 0;
}

// The space that the rows use, not the size of the file: freed pages are reused.
int64_t Writer::UsedBytes() {
    return (Ask("PRAGMA page_count") - Ask("PRAGMA freelist_count")) * Ask("PRAGMA page_size");
}

// Exact for what is added while the database is open. What the storage held before is estimated as
// its share of all items by number: adding it up would mean reading every row.
int64_t& Writer::TakenBy(int64_t storage) {
    if (const auto known = m_taken.find(storage); known != m_taken.end()) return known->second;
    const std::string items = "count0 + count1 + count2 + count3 + count4";
    Query query(*m_connection, "SELECT coalesce(sum(" + items + "), 0), coalesce(sum((" + items +
                                   ") * (number = ?)), 0) FROM storage");
    query.Bind(storage).Next();
    const double all = std::max<double>(1, query.Real(0));
    return m_taken[storage] =
               static_cast<int64_t>(query.Real(1) / all * static_cast<double>(UsedBytes()));
}

void Writer::Checkpoint() {
    std::lock_guard<std::mutex> lock(m_mutex);
    MoveLog(kPageMs);
}

// Waits for readers at most so long; what is left stays in the log until the next time. True when
// nothing is left.
bool Writer::MoveLog(int waitMs) {
    sqlite3_busy_timeout(m_connection->Handle(), waitMs);
    const int result = sqlite3_wal_checkpoint_v2(m_connection->Handle(), nullptr,
                                                 SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    sqlite3_busy_timeout(m_connection->Handle(), 5000);
    return result == SQLITE_OK;
}

}  // namespace platform
