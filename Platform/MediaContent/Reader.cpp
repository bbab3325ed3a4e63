#include "MediaContent/Reader.h"

#include <strings.h>

#include <algorithm>

#include "MediaContent/Schema.h"

namespace platform {
namespace {

constexpr int64_t kChunk = 1000;  // rows read between two rounds of callbacks
constexpr unsigned kAllTypes = (1u << kMediaTypes) - 1;

// A condition that limits `column` to the scope's storages.
std::string InScope(const char* column, const Scope& scope) {
    std::string list;
    for (const auto& [number, path] : scope)
        list += (list.empty() ? "" : ", ") + std::to_string(number);
    return column + (scope.size() == 1 ? " = " + list : " IN (" + list + ")");
}

std::string TypeList(unsigned mask) {
    std::string list;
    int types = 0;
    for (int type = 0; type < kMediaTypes; ++type) {
        if (!(mask & (1u << type))) continue;
        list += (types++ ? ", " : "") + std::to_string(type);
    }
    return types == 1 ? "type = " + list : "type IN (" + list + ")";
}

// The column of the item table behind a column of the view, if it is a plain one.
const char* TableColumn(const std::string& column) {
    static constexpr const char* kPairs[][2] = {
        {"MEDIA_TYPE", "type"},         {"MEDIA_SIZE", "size"},
        {"MEDIA_ADDED_TIME", "added"},  {"MEDIA_MODIFIED_TIME", "modified"},
        {"MEDIA_WIDTH", "width"},       {"MEDIA_HEIGHT", "height"},
        {"MEDIA_LATITUDE", "latitude"}, {"MEDIA_LONGITUDE", "longitude"},
        {"MEDIA_TITLE", "title"},       {"MEDIA_DISPLAY_NAME", "name"}};
    for (const auto& pair : kPairs)
        if (column == pair[0]) return pair[1];
    return nullptr;
}

// True when the filter's condition, if any, only restricts the kinds.
bool AsksForKinds(const media_filter_s* filter, unsigned& mask) {
    mask = kAllTypes;
    return !filter || filter->condition.empty() || ReadTypeMask(filter->condition, mask);
}

constexpr const char* kSumColumns =
    "sum(count0), sum(count1), sum(count2), sum(count3), sum(count4)";

int64_t SumOfCounts(Connection& connection, const std::string& from, unsigned mask) {
    Query query(connection, std::string("SELECT ") + kSumColumns + " FROM " + from);
    if (!query.Next()) return 0;
    int64_t sum = 0;
    for (int type = 0; type < kMediaTypes; ++type)
        if (mask & (1u << type)) sum += query.Int(type);
    return sum;
}

std::string FolderPrefix(const std::string& mountPath, const std::string& folder) {
    return folder.empty() ? mountPath + '/' : mountPath + '/' + folder + '/';
}

void FillRecord(const Query& query, media_info_s& record) {
    for (const int text : {3, 8, 9, 17, 18, 19, 20, 21, 22, 23})  // in the order of ItemText
        record.texts.Add(query.View(text));
    record.type = static_cast<media_content_type_e>(query.Int(4));
    record.added = query.Int(5);
    record.modified = query.Int(6);
    record.size = query.Int(7);
    record.width = static_cast<int32_t>(query.Int(10));
    record.height = static_cast<int32_t>(query.Int(11));
    record.orientation = static_cast<int32_t>(query.Int(12));
    record.bitRate = static_cast<int32_t>(query.Int(13));
    record.duration = static_cast<int32_t>(query.Int(14));
    record.latitude = query.Real(15);
    record.longitude = query.Real(16);
}

constexpr const char* kRecord =
    "SELECT revision, storage, folder, name, type, added, modified, size, mime, title, width,"
    " height, orientation, bit_rate, duration, latitude, longitude, description, album, artist,"
    " genre, composer, copyright, track FROM item WHERE number = ?";

}  // namespace

// ---- items ------------------------------------------------------------------------------------

Plan Reader::MakePlan(Connection& connection, const Scope& scope, int64_t folder,
                      const media_filter_s* filter) {
    Plan plan;
    const bool ordered = filter && !filter->orderColumn.empty();
    const std::string column =
        ordered ? FindColumn(kItemColumns, filter->orderColumn) : "MEDIA_ADDED_TIME";
    plan.descending = ordered && filter->order == MEDIA_CONTENT_ORDER_DESC;
    const bool caseless = ordered && filter->orderCollation == MEDIA_CONTENT_COLLATE_NOCASE;
    plan.revisionQuery = "SELECT sum(revision) FROM storage WHERE " + InScope("number", scope);
    const std::string limits =
        folder != 0 ? "folder = " + std::to_string(folder) : InScope("storage", scope);

    unsigned mask = kAllTypes;
    const bool kindsOnly = AsksForKinds(filter, mask);
    const char* tableColumn = TableColumn(column);
    if (kindsOnly && tableColumn) {
        if (mask != kAllTypes && folder != 0 &&
            SumOfCounts(connection, "folder WHERE number = " + std::to_string(folder),
                        kAllTypes & ~mask) == 0)
            mask = kAllTypes;  // all items there match: no need to test each item's kind
        plan.source = "item WHERE " + limits + (mask == kAllTypes ? "" : " AND " + TypeList(mask));
        plan.key = tableColumn;
    } else {
        const auto collation = filter ? filter->conditionCollation : MEDIA_CONTENT_COLLATE_DEFAULT;
        const bool conditioned = filter && !filter->condition.empty();
        if (conditioned) CheckCondition(connection, kItemColumns, filter->condition);
        plan.source = "(SELECT * FROM " + ViewName(kItemColumns, collation) + " WHERE " + limits +
                      ") WHERE (" + (conditioned ? filter->condition : "1") + "\n)";
        plan.key = column;
        plan.guarded = &kItemColumns;
    }
    if (caseless) plan.key = '(' + plan.key + " COLLATE NOCASE)";
    return plan;
}

int64_t Reader::CountBySql(Connection& connection, const Plan& plan) {
    const std::string sql = "SELECT count(*) FROM " + plan.source;
    Query query(connection, plan.guarded ? PrepareGuarded(connection, *plan.guarded, sql)
                                         : connection.Prepare(sql));
    return query.Next() ? query.Int(0) : 0;
}

int64_t Reader::CountItems(const Scope& scope, const media_filter_s* filter) {
    const Store::Borrowed connection = m_store.Read();
    unsigned mask = 0;
    if (!AsksForKinds(filter, mask))
        return CountBySql(*connection, MakePlan(*connection, scope, 0, filter));
    return SumOfCounts(*connection, "storage WHERE " + InScope("number", scope), mask);
}

int64_t Reader::CountFolderItems(const Scope& scope, int64_t folder, const media_filter_s* filter) {
    const Store::Borrowed connection = m_store.Read();
    unsigned mask = 0;
    if (!AsksForKinds(filter, mask))
        return CountBySql(*connection, MakePlan(*connection, scope, folder, filter));
    return SumOfCounts(*connection, "folder WHERE number = " + std::to_string(folder), mask);
}

void Reader::ListItems(const Scope& scope, int64_t folder, const media_filter_s* filter,
                       const std::function<bool(const MediaRecord&)>& callback) {
    int64_t left = filter && filter->count >= 0 ? filter->count : INT64_MAX;
    const int64_t offset = filter ? filter->offset : 0;
    Plan plan;
    Position last;
    for (bool first = true;; first = false) {
        const int64_t count = std::min(left, kChunk);
        std::vector<MediaRecord> records;
        bool more = false;
        {
            const Store::Borrowed connection = m_store.Read();
            Transaction snapshot(*connection, Transaction::READ);
            if (first) plan = MakePlan(*connection, scope, folder, filter);
            const std::vector<Position> page =
                first ? ReadPage(*connection, m_store.Anchors(), plan, offset, count)
                      : ReadAfter(*connection, plan, last, count);
            records = ReadRecords(*connection, scope, page);
            more = static_cast<int64_t>(page.size()) == count;
            if (!page.empty()) last = page.back();
        }
        for (const MediaRecord& record : records)
            if (!callback(record)) return;
        left -= count;
        if (!more || left == 0) return;
    }
}

std::vector<MediaRecord> Reader::ReadRecords(Connection& connection, const Scope& scope,
                                             const std::vector<Position>& positions) {
    std::vector<MediaRecord> records;
    records.reserve(positions.size());
    std::unordered_map<int64_t, std::string> folders;  // absolute, with a trailing slash
    Query row(connection, kRecord);
    for (const Position& position : positions) {
        row.Again();
        if (!row.Bind(position.number).Next()) continue;
        const auto mounted = scope.find(row.Int(1));
        if (mounted == scope.end()) continue;
        std::string& folder = folders[row.Int(2)];
        if (folder.empty()) {
            Query query(connection, "SELECT path FROM folder WHERE number = ?");
            query.Bind(row.Int(2));
            folder = FolderPrefix(mounted->second, query.Next() ? query.Text(0) : std::string());
        }
        records.push_back(ShareRecord(position.number, row.Int(0), m_store.ItemId(position.number),
                                      folder,
                                      [&](media_info_s& record) { FillRecord(row, record); }));
    }
    return records;
}

MediaRecord Reader::FindItem(const Scope& scope, int64_t number) {
    const Store::Borrowed connection = m_store.Read();
    Transaction snapshot(*connection, Transaction::READ);
    Position position;
    position.number = number;
    const std::vector<MediaRecord> records = ReadRecords(*connection, scope, {position});
    return records.empty() ? MediaRecord() : records.front();
}

// ---- folders ----------------------------------------------------------------------------------

int64_t Reader::StorageOfFolder(int64_t folder) {
    const Store::Borrowed connection = m_store.Read();
    Query query(*connection, "SELECT storage FROM folder WHERE number = ?");
    query.Bind(folder);
    return query.Next() ? query.Int(0) : 0;
}

std::vector<FolderRecord> Reader::ListFolders(const Scope& scope, const media_filter_s* filter) {
    const Store::Borrowed connection = m_store.Read();
    const bool conditioned = filter && !filter->condition.empty();
    const auto collation = filter ? filter->conditionCollation : MEDIA_CONTENT_COLLATE_DEFAULT;
    if (conditioned) CheckCondition(*connection, kFolderColumns, filter->condition);
    std::string sql = "SELECT number, FOLDER_PATH FROM (SELECT * FROM " +
                      ViewName(kFolderColumns, collation) + " WHERE " + InScope("storage", scope) +
                      " AND below > 0) WHERE (" + (conditioned ? filter->condition : "1") +
                      "\n) ORDER BY ";
    const bool descending = filter && filter->order == MEDIA_CONTENT_ORDER_DESC;
    const char* direction = descending ? " DESC" : " ASC";
    if (filter && !filter->orderColumn.empty()) {
        sql += FindColumn(kFolderColumns, filter->orderColumn);
        if (filter->orderCollation == MEDIA_CONTENT_COLLATE_NOCASE) sql += " COLLATE NOCASE";
        sql += std::string(direction) + ", ";
    }
    sql += std::string("number") + direction + " LIMIT " +
           std::to_string(filter ? filter->count : -1) + " OFFSET " +
           std::to_string(filter ? filter->offset : 0);

    std::vector<FolderRecord> folders;
    Query query(*connection, PrepareGuarded(*connection, kFolderColumns, sql));
    while (query.Next()) {
        FolderRecord folder(new media_folder_s);
        folder->id = m_store.FolderId(query.Int(0));
        folder->path = query.View(1);
        folders.push_back(std::move(folder));
    }
    return folders;
}

// ---- queries of the scanner -------------------------------------------------------------------

std::unordered_map<std::string, KnownItem> Reader::KnownItems(int64_t storage,
                                                              const std::string& folder) {
    std::unordered_map<std::string, KnownItem> items;
    const Store::Borrowed connection = m_store.Read();
    Query query(*connection,
                "SELECT i.name, i.number, i.size, i.modified, i.modified_ns, i.inode, i.state,"
                " i.pinned FROM folder AS f CROSS JOIN item AS i ON i.folder = f.number"
                " WHERE f.storage = ? AND f.path = ?");
    query.Bind(storage).Bind(folder);
    while (query.Next()) {
        KnownItem item;
        item.number = query.Int(1);
        item.facts = {query.Int(2), query.Int(3), query.Int(4), query.Int(5)};
        item.state = static_cast<ItemState>(query.Int(6));
        item.pinned = query.Int(7) != 0;
        items.emplace(query.Text(0), item);
    }
    return items;
}

std::vector<std::string> Reader::KnownFolders(int64_t storage, const std::string& below) {
    std::vector<std::string> folders;
    const Store::Borrowed connection = m_store.Read();
    // '0' follows '/': the range contains what begins with the path and a slash.
    Query query(*connection, below.empty()
                                 ? "SELECT path FROM folder WHERE storage = ? AND below > 0"
                                 : "SELECT path FROM folder WHERE storage = ?1 AND below > 0 AND"
                                   " (path = ?2 OR (path > ?2 || '/' AND path < ?2 || '0'))");
    query.Bind(storage);
    if (!below.empty()) query.Bind(below);
    while (query.Next()) folders.push_back(query.Text(0));
    return folders;
}

std::vector<KnownPlace> Reader::KnownPlaces(int64_t storage, int64_t inode) {
    std::vector<KnownPlace> places;
    const Store::Borrowed connection = m_store.Read();
    Query query(*connection,
                "SELECT i.number, f.path, i.name, i.size, i.modified, i.modified_ns, i.type,"
                " i.pinned FROM item AS i CROSS JOIN folder AS f ON f.number = i.folder"
                " WHERE i.storage = ? AND i.inode = ?");
    query.Bind(storage).Bind(inode);
    while (query.Next()) {
        KnownPlace place;
        place.number = query.Int(0);
        place.folder = query.Text(1);
        place.name = query.Text(2);
        place.facts = {query.Int(3), query.Int(4), query.Int(5), inode};
        place.type = static_cast<media_content_type_e>(query.Int(6));
        place.pinned = query.Int(7) != 0;
        places.push_back(std::move(place));
    }
    return places;
}

bool Reader::HoldsItems(int64_t storage) {
    const Store::Borrowed connection = m_store.Read();
    return SumOfCounts(*connection, "storage WHERE number = " + std::to_string(storage),
                       kAllTypes) > 0;
}

bool Reader::IsToBeReadAgain(int64_t storage) {
    const Store::Borrowed connection = m_store.Read();
    Query query(*connection, "SELECT 1 FROM setting WHERE name = ?");
    return query.Bind(ReadAgainSetting(storage)).Next();
}

std::vector<int64_t> Reader::StoragesUnseenSince(int64_t before) {
    std::vector<int64_t> storages;
    const Store::Borrowed connection = m_store.Read();
    Query query(*connection, "SELECT number FROM storage WHERE last_seen < ?");
    query.Bind(before);
    while (query.Next()) storages.push_back(query.Int(0));
    return storages;
}

}  // namespace platform
