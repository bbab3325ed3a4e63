#include "Library.h"

#include <atomic>
#include <fstream>

#include "MediaContent/Database.h"
#include "MediaContent/Records.h"

namespace media_test {
namespace {

bool Append(media_info_h media, void* list) {
    static_cast<std::vector<Item>*>(list)->push_back(Describe(media));
    return true;
}

}  // namespace

void WriteFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    ASSERT_TRUE(file.good()) << path;
}

std::string Text(const std::function<int(char**)>& getter) {
    char* text = nullptr;
    EXPECT_EQ(getter(&text), 0);
    const std::string copy = text ? text : "";
    free(text);
    return copy;
}

Item Describe(media_info_h media) {
    Item item;
    item.id = Text([&](char** out) { return media_info_get_media_id(media, out); });
    item.path = Text([&](char** out) { return media_info_get_file_path(media, out); });
    item.title = Text([&](char** out) { return media_info_get_title(media, out); });
    EXPECT_EQ(media_info_get_media_type(media, &item.type), 0);
    return item;
}

FilterHandle Make(const Filter& filter) {
    media_filter_h handle = nullptr;
    EXPECT_EQ(media_filter_create(&handle), 0);
    int error = 0;
    if (!filter.storage.empty()) error |= media_filter_set_storage(handle, filter.storage.c_str());
    if (!filter.condition.empty())
        error |=
            media_filter_set_condition(handle, filter.condition.c_str(), filter.conditionCollation);
    if (!filter.order.empty())
        error |= media_filter_set_order(handle, filter.direction, filter.order.c_str(),
                                        filter.orderCollation);
    if (filter.count >= 0) error |= media_filter_set_offset(handle, filter.offset, filter.count);
    EXPECT_EQ(error, 0) << filter.condition << filter.order;
    return {handle, media_filter_destroy};
}

int Count(const Filter& filter, int expected) {
    int count = -1;
    EXPECT_EQ(media_info_get_media_count_from_db(Make(filter).get(), &count), expected)
        << filter.condition;
    return count;
}

std::vector<Item> List(const Filter& filter, int expected) {
    std::vector<Item> items;
    EXPECT_EQ(media_info_foreach_media_from_db(Make(filter).get(), Append, &items), expected)
        << filter.condition;
    return items;
}

std::vector<Item> ListFolder(const std::string& folderId, const Filter& filter) {
    std::vector<Item> items;
    EXPECT_EQ(
        media_folder_foreach_media_from_db(folderId.c_str(), Make(filter).get(), Append, &items),
        0);
    return items;
}

int CountFolder(const std::string& folderId, const Filter& filter) {
    int count = -1;
    EXPECT_EQ(media_folder_get_media_count_from_db(folderId.c_str(), Make(filter).get(), &count),
              0);
    return count;
}

template <typename Handle, auto PathOf, auto IdOf>
bool AddByPath(Handle handle, void* map) {
    const std::string path = Text([&](char** out) { return PathOf(handle, out); });
    (*static_cast<Texts*>(map))[path] = Text([&](char** out) { return IdOf(handle, out); });
    return true;
}

Texts Folders(const Filter& filter) {
    Texts folders;
    const auto add = AddByPath<media_folder_h, media_folder_get_path, media_folder_get_folder_id>;
    EXPECT_EQ(media_folder_foreach_folder_from_db(Make(filter).get(), add, &folders), 0);
    return folders;
}

std::string StorageAt(const std::string& mountPath) {
    Texts storages;
    const auto add =
        AddByPath<media_storage_h, media_storage_get_path, media_storage_get_storage_id>;
    EXPECT_EQ(media_storage_foreach_storage_from_db(nullptr, add, &storages), 0);
    return storages[mountPath];
}

media_storage_scan_status_e ScanStatus(const std::string& storageId) {
    media_storage_scan_status_e status = MEDIA_STORAGE_SCAN_STOPPED;
    EXPECT_EQ(media_storage_get_scan_status(storageId.c_str(), &status), 0);
    return status;
}

long long Ask(const std::string& databaseFile, const std::string& sql) {
    platform::Connection connection(databaseFile, SQLITE_OPEN_READWRITE);
    platform::Query query(connection, connection.Prepare(sql));
    return query.Next() ? query.Int(0) : 0;
}

void ExpectSound(const std::string& databaseFile) {
    platform::Connection connection(databaseFile, SQLITE_OPEN_READWRITE);
    platform::Query check(connection, connection.Prepare("PRAGMA integrity_check"));
    ASSERT_TRUE(check.Next());
    EXPECT_EQ(check.Text(0), "ok");
    std::vector<std::string> wrong = {
        "folder AS f WHERE below <> (SELECT coalesce(sum(count0 + count1 + count2 + count3 +"
        " count4), 0) FROM folder WHERE storage = f.storage AND (f.path = '' OR path = f.path OR"
        " substr(path, 1, length(f.path) + 1) = f.path || '/'))",
        "item WHERE folder NOT IN (SELECT number FROM folder)"};
    for (const std::string table : {"storage", "folder"})
        for (const std::string type : {"0", "1", "2", "3", "4"})
            wrong.push_back(table + " AS t WHERE count" + type +
                            " <> (SELECT count(*) FROM item WHERE " + table +
                            " = t.number AND type = " + type + ")");
    for (const std::string& rows : wrong)
        EXPECT_EQ(Ask(databaseFile, "SELECT count(*) FROM " + rows), 0) << rows;
}

MediaTest::MediaTest() {
    platform::ConfigureMediaService({DatabaseFile(), "/nonexistent/extractor"});
}

MediaTest::~MediaTest() {
    for (const auto& stick : std::filesystem::directory_iterator(m_sticks.Path()))
        platform::StorageUnmounted(stick.path());
    platform::ShutdownMediaService();
    EXPECT_TRUE(platform::CurrentScans().empty());
    EXPECT_EQ(platform::LiveRecords(), 0);
}

void MediaTest::StartMount(const std::string& name, const std::string& uuid) {
    platform::MountedStorage storage;
    storage.uuid = uuid;
    storage.mountPath = Stick(name);
    platform::StorageMounted(storage);
    platform::StorageContentChanged(storage.mountPath, {});
}

std::string MediaTest::Mount(const std::string& name, const std::string& uuid) {
    StartMount(name, uuid);
    const std::string id = StorageAt(Stick(name));
    EXPECT_NE(id, "");
    WaitForScan(id);
    return id;
}

void MediaTest::WaitForScan(const std::string& storageId) {
    EXPECT_TRUE(Until([&] {
        for (const auto& scan : platform::CurrentScans())
            if (scan.storageId == storageId) return false;
        return true;
    }));
}

void MediaTest::ScanFolder(const std::string& name, bool recursive) {
    struct End {
        std::atomic<bool> came{false};
        media_content_error_e error = MEDIA_CONTENT_ERROR_NONE;
    } end;
    const auto ended = [](media_content_error_e error, void* data) {
        static_cast<End*>(data)->error = error;
        static_cast<End*>(data)->came = true;
    };
    ASSERT_EQ(media_content_scan_folder(Stick(name).c_str(), recursive, ended, &end), 0);
    ASSERT_TRUE(Until([&] { return end.came.load(); }));
    EXPECT_EQ(end.error, 0);
}

void MediaTest::TellChanged(const std::string& stick, const std::vector<std::string>& names) {
    std::vector<std::string> paths;
    for (const std::string& name : names) paths.push_back(Stick(stick) + "/" + name);
    platform::StorageContentChanged(Stick(stick), paths);
    if (paths.empty()) WaitForScan(StorageAt(Stick(stick)));
}

Texts MediaTest::Ids(const std::string& name, const Filter& filter) const {
    const std::string folder = Stick(name) + "/";
    Texts ids;
    for (const Item& item : List(filter))
        if (item.path.compare(0, folder.size(), folder) == 0)
            ids[item.path.substr(folder.size())] = item.id;
    return ids;
}

}  // namespace media_test
