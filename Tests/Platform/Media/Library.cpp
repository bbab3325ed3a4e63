#include "Library.h"

#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>

#include "MediaContent/Records.h"

namespace media_test {
namespace {

bool Append(media_info_h media, void* list) {
    static_cast<std::vector<Item>*>(list)->push_back(Describe(media));
    return true;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    char name[] = "/tmp/media-test-XXXXXX";
    if (!mkdtemp(name)) throw std::runtime_error("no temporary folder");
    m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void WriteFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    ASSERT_TRUE(file.good()) << path;
}

bool WaitFor(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
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
    if (!filter.storage.empty()) {
        EXPECT_EQ(media_filter_set_storage(handle, filter.storage.c_str()), 0);
    }
    if (!filter.condition.empty()) {
        EXPECT_EQ(
            media_filter_set_condition(handle, filter.condition.c_str(), filter.conditionCollation),
            0);
    }
    if (!filter.order.empty()) {
        EXPECT_EQ(media_filter_set_order(handle, filter.direction, filter.order.c_str(),
                                         filter.orderCollation),
                  0);
    }
    if (filter.count >= 0) {
        EXPECT_EQ(media_filter_set_offset(handle, filter.offset, filter.count), 0);
    }
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

std::map<std::string, std::string> Folders(const Filter& filter) {
    std::map<std::string, std::string> folders;
    const auto add = [](media_folder_h folder, void* map) {
        const std::string path =
            Text([&](char** out) { return media_folder_get_path(folder, out); });
        (*static_cast<std::map<std::string, std::string>*>(map))[path] =
            Text([&](char** out) { return media_folder_get_folder_id(folder, out); });
        return true;
    };
    EXPECT_EQ(media_folder_foreach_folder_from_db(Make(filter).get(), add, &folders), 0);
    return folders;
}

std::map<std::string, std::string> IdsByPath(const Filter& filter) {
    std::map<std::string, std::string> ids;
    for (const Item& item : List(filter)) ids[item.path] = item.id;
    return ids;
}

std::string StorageAt(const std::string& mountPath) {
    struct Search {
        std::string path;
        std::string id;
    } search{mountPath, ""};
    const auto compare = [](media_storage_h storage, void* data) {
        Search& wanted = *static_cast<Search*>(data);
        const std::string path =
            Text([&](char** out) { return media_storage_get_path(storage, out); });
        if (path == wanted.path)
            wanted.id =
                Text([&](char** out) { return media_storage_get_storage_id(storage, out); });
        return true;
    };
    EXPECT_EQ(media_storage_foreach_storage_from_db(nullptr, compare, &search), 0);
    return search.id;
}

media_storage_scan_status_e ScanStatus(const std::string& storageId) {
    media_storage_scan_status_e status = MEDIA_STORAGE_SCAN_STOPPED;
    EXPECT_EQ(media_storage_get_scan_status(storageId.c_str(), &status), 0);
    return status;
}

MediaTest::MediaTest() {
    platform::MediaServiceOptions options;
    options.databaseFile = DatabaseFile();
    options.extractorPath = "/nonexistent/extractor";
    if (const char* helper = getenv("CM_EXTRACTOR")) options.extractorPath = helper;
    platform::ConfigureMediaService(options);
}

MediaTest::~MediaTest() {
    for (const auto& stick : std::filesystem::directory_iterator(m_sticks.Path()))
        platform::StorageUnmounted(stick.path());
    platform::ShutdownMediaService();
    EXPECT_TRUE(platform::CurrentScans().empty());
    EXPECT_EQ(platform::LiveRecords(), 0);
}

void MediaTest::Connect() {
    ASSERT_EQ(media_content_connect(), 0);
}

void MediaTest::Disconnect() {
    ASSERT_EQ(media_content_disconnect(), 0);
}

std::string MediaTest::Mount(const std::string& name, const std::string& uuid) {
    std::filesystem::create_directories(Stick(name));
    platform::MountedStorage storage;
    storage.uuid = uuid;
    storage.mountPath = Stick(name);
    platform::StorageMounted(storage);
    const std::string id = StorageAt(Stick(name));
    EXPECT_FALSE(id.empty());
    WaitForScan(id);
    return id;
}

void MediaTest::WaitForScan(const std::string& storageId) {
    EXPECT_TRUE(WaitFor([&] {
        for (const auto& scan : platform::CurrentScans())
            if (scan.storageId == storageId) return false;
        return true;
    }));
}

void MediaTest::Unmount(const std::string& name) {
    platform::StorageUnmounted(Stick(name));
}

void MediaTest::ScanFolder(const std::string& path, bool recursive,
                           media_content_error_e expected) {
    struct End {
        std::atomic<bool> came{false};
        media_content_error_e error = MEDIA_CONTENT_ERROR_NONE;
    } end;
    const auto ended = [](media_content_error_e error, void* data) {
        static_cast<End*>(data)->error = error;
        static_cast<End*>(data)->came = true;
    };
    ASSERT_EQ(media_content_scan_folder(path.c_str(), recursive, ended, &end), 0);
    ASSERT_TRUE(WaitFor([&] { return end.came.load(); }));
    EXPECT_EQ(end.error, expected);
}

}  // namespace media_test
