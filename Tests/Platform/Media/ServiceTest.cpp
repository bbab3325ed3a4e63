// Connection, storages, listings and updates, as seen through the C interface.
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <thread>

#include "Library.h"

namespace media_test {
namespace {

TEST_F(MediaTest, ListsWhatTheStickHolds) {
    WriteFile(Stick("a") + "/one.jpg");
    WriteFile(Stick("a") + "/DCIM/100/two.JPG");
    WriteFile(Stick("a") + "/Music/song.mp3");
    WriteFile(Stick("a") + "/readme.txt");
    WriteFile(Stick("a") + "/.hidden/three.jpg");
    WriteFile(Stick("a") + "/covers/.nomedia");
    WriteFile(Stick("a") + "/covers/deep/four.jpg");
    Connect();
    const std::string id = Mount("a", "1234-ABCD");
    EXPECT_EQ(ScanStatus(id), MEDIA_STORAGE_SCAN_COMPLETE);
    EXPECT_EQ(Count({id}), 3);
    EXPECT_EQ(Count({id, "MEDIA_TYPE=0"}), 2);
    EXPECT_EQ(Count({"no such storage", "MEDIA_TYPE=0"}), 0);
    EXPECT_TRUE(List({"no such storage", "MEDIA_TYPE=0"}).empty());

    const auto items = List({id, "MEDIA_TYPE=0"});
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(IdsByPath({id, "MEDIA_TYPE=3"}).count(Stick("a") + "/Music/song.mp3"), 1u);

    const auto folders = Folders({id, "FOLDER_STORAGE_TYPE = 1"});
    ASSERT_EQ(folders.size(), 4u);
    EXPECT_EQ(CountFolder(folders.at(Stick("a") + "/DCIM/100")), 1);
    EXPECT_EQ(CountFolder(folders.at(Stick("a") + "/DCIM")), 0);
    const char* kinds = " (MEDIA_TYPE = 0 OR MEDIA_TYPE = 1 OR MEDIA_TYPE = 2 OR MEDIA_TYPE = 3) ";
    EXPECT_EQ(ListFolder(folders.at(Stick("a")), {"", kinds}).size(), 1u);
    EXPECT_EQ(CountFolder(folders.at(Stick("a")), {"", kinds}), 1);
    EXPECT_EQ(CountFolder("", {"", kinds}), 0);
    EXPECT_TRUE(ListFolder("nonsense").empty());
    EXPECT_EQ(Folders({id, "FOLDER_NAME = 'dcim'"}).size(), 0u);
    EXPECT_EQ(Folders({id, "FOLDER_NAME = 'dcim'", MEDIA_CONTENT_COLLATE_NOCASE}).size(), 1u);
}

TEST_F(MediaTest, AnswersWithoutConnection) {
    int count = 0;
    EXPECT_EQ(media_content_disconnect(), MEDIA_CONTENT_ERROR_INVALID_OPERATION);
    EXPECT_EQ(media_info_get_media_count_from_db(nullptr, &count),
              MEDIA_CONTENT_ERROR_INVALID_OPERATION);
    EXPECT_EQ(media_content_scan_folder(
                  "/tmp", false, [](media_content_error_e, void*) {}, nullptr),
              MEDIA_CONTENT_ERROR_INVALID_OPERATION);
    // Counted: one of two disconnects leaves the database open.
    Connect();
    Connect();
    Disconnect();
    EXPECT_EQ(Count({}), 0);
    Disconnect();
    EXPECT_EQ(Count({}, MEDIA_CONTENT_ERROR_INVALID_OPERATION), -1);
}

TEST_F(MediaTest, RemembersStoragesMountedWhileClosed) {
    WriteFile(Stick("a") + "/one.jpg");
    platform::MountedStorage storage;
    storage.uuid = "U1";
    storage.mountPath = Stick("a") + "/";
    platform::StorageMounted(storage);
    Connect();
    const std::string id = StorageAt(Stick("a"));
    ASSERT_FALSE(id.empty());
    WaitForScan(id);
    EXPECT_EQ(Count({id}), 1);
    // Gone while closed, too.
    Disconnect();
    platform::StorageUnmounted(Stick("a"));
    Connect();
    EXPECT_EQ(StorageAt(Stick("a")), "");
    EXPECT_EQ(Count({}), 0);
    media_storage_scan_status_e status;
    EXPECT_EQ(media_storage_get_scan_status(id.c_str(), &status), MEDIA_CONTENT_ERROR_NOT_FOUND);
}

TEST_F(MediaTest, RefusesNullArguments) {
    Connect();
    int number = 0;
    char* text = nullptr;
    EXPECT_EQ(media_filter_create(nullptr), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_filter_destroy(nullptr), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    const FilterHandle filter = Make({});
    EXPECT_EQ(media_filter_set_offset(filter.get(), -1, 5), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_filter_set_offset(filter.get(), 0, -5), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_filter_set_condition(filter.get(), nullptr, MEDIA_CONTENT_COLLATE_DEFAULT),
              MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_info_get_media_count_from_db(nullptr, nullptr),
              MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_folder_get_media_count_from_db(nullptr, nullptr, &number),
              MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_info_get_title(nullptr, &text), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(audio_meta_get_album(nullptr, &text), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_content_set_db_updated_cb(nullptr, nullptr),
              MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(media_info_delete_from_db(""), MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
}

TEST_F(MediaTest, GivesTheRecordsValues) {
    WriteFile(Stick("a") + "/pic.v2.jpg", "twelve bytes");
    Connect();
    Mount("a", "U1");
    media_info_h media = nullptr;
    const auto clone = [](media_info_h item, void* out) {
        return media_info_clone(static_cast<media_info_h*>(out), item) == 0;
    };
    ASSERT_EQ(media_info_foreach_media_from_db(nullptr, clone, &media), 0);
    ASSERT_NE(media, nullptr);
    unsigned long long size = 0;
    EXPECT_EQ(media_info_get_size(media, &size), 0);
    EXPECT_EQ(size, 12u);
    struct stat facts {};
    ASSERT_EQ(stat((Stick("a") + "/pic.v2.jpg").c_str(), &facts), 0);
    time_t modified = 0;
    EXPECT_EQ(media_info_get_modified_time(media, &modified), 0);
    EXPECT_EQ(modified, facts.st_mtime);
    EXPECT_EQ(Describe(media).title, "pic.v2");
    EXPECT_EQ(Text([&](char** out) { return media_info_get_display_name(media, out); }),
              "pic.v2.jpg");
    EXPECT_EQ(Text([&](char** out) { return media_info_get_mime_type(media, out); }), "image/jpeg");
    char* nothing = nullptr;
    EXPECT_EQ(media_info_get_description(media, &nothing), 0);
    EXPECT_EQ(nothing, nullptr);

    audio_meta_h audio = nullptr;
    EXPECT_EQ(media_info_get_audio(media, &audio), MEDIA_CONTENT_ERROR_INVALID_OPERATION);
    image_meta_h image = nullptr;
    ASSERT_EQ(media_info_get_image(media, &image), 0);
    // The metadata outlives the handle that it came from.
    EXPECT_EQ(media_info_destroy(media), 0);
    int width = -1;
    EXPECT_EQ(image_meta_get_width(image, &width), 0);
    EXPECT_EQ(width, 0);
    EXPECT_EQ(image_meta_destroy(image), 0);
}

// ---- inserting, deleting, scanning a folder ---------------------------------------------------

TEST_F(MediaTest, InsertsOnlyRegularFilesOfMountedStorages) {
    WriteFile(Stick("a") + "/seen.jpg");
    Connect();
    const std::string id = Mount("a", "U1");
    WriteFile(Stick("a") + "/new/later.mp3");
    WriteFile(Stick("a") + "/notes.txt");
    WriteFile(Stick("b") + "/not mounted.jpg");
    symlink((Stick("b") + "/not mounted.jpg").c_str(), (Stick("a") + "/out.jpg").c_str());
    symlink("seen.jpg", (Stick("a") + "/in.jpg").c_str());
    mkfifo((Stick("a") + "/pipe.jpg").c_str(), 0600);

    media_info_h media = nullptr;
    const auto insert = [&](const std::string& path) {
        return media_info_insert_to_db(path.c_str(), &media);
    };
    EXPECT_EQ(insert(Stick("a") + "/missing.jpg"), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(insert(Stick("b") + "/not mounted.jpg"), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(insert(Stick("a") + "/out.jpg"), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(insert(Stick("a") + "/../b/not mounted.jpg"), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(insert(Stick("a") + "/new"), MEDIA_CONTENT_ERROR_UNSUPPORTED);
    EXPECT_EQ(insert(Stick("a")), MEDIA_CONTENT_ERROR_UNSUPPORTED);
    EXPECT_EQ(insert(Stick("a") + "/pipe.jpg"), MEDIA_CONTENT_ERROR_UNSUPPORTED);
    EXPECT_EQ(media, nullptr);
    EXPECT_EQ(Count({id}), 1);

    ASSERT_EQ(insert(Stick("a") + "/new/later.mp3"), 0);
    const Item item = Describe(media);
    EXPECT_EQ(media_info_destroy(media), 0);
    EXPECT_EQ(item.type, MEDIA_CONTENT_TYPE_MUSIC);
    EXPECT_EQ(Count({id, "MEDIA_TYPE=3"}), 1);
    // Again, and through a link inside: the same record.
    ASSERT_EQ(insert(Stick("a") + "/new/../new/later.mp3"), 0);
    EXPECT_EQ(Describe(media).id, item.id);
    media_info_destroy(media);
    ASSERT_EQ(insert(Stick("a") + "/in.jpg"), 0);
    EXPECT_EQ(Describe(media).path, Stick("a") + "/seen.jpg");
    media_info_destroy(media);

    // What no scan would list stays as long as the file does.
    ASSERT_EQ(insert(Stick("a") + "/notes.txt"), 0);
    EXPECT_EQ(Describe(media).type, MEDIA_CONTENT_TYPE_OTHERS);
    media_info_destroy(media);
    platform::StorageContentChanged(Stick("a"), {});
    WaitForScan(id);
    EXPECT_EQ(Count({id}), 3);
    std::filesystem::remove(Stick("a") + "/notes.txt");
    ScanFolder(Stick("a"), false);
    EXPECT_EQ(Count({id}), 2);
}

TEST_F(MediaTest, DeletesRecordsAndNoFiles) {
    WriteFile(Stick("a") + "/one.jpg");
    Connect();
    const std::string storage = Mount("a", "U1");
    const std::string id = IdsByPath().at(Stick("a") + "/one.jpg");
    for (const char* other : {"1", "nonsense-1", "-1", "0000000000000000-1"})
        EXPECT_EQ(media_info_delete_from_db(other), MEDIA_CONTENT_ERROR_NOT_FOUND) << other;
    EXPECT_EQ(media_info_delete_from_db((id + "0").c_str()), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(media_info_delete_from_db(id.c_str()), 0);
    EXPECT_EQ(media_info_delete_from_db(id.c_str()), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(Count({storage}), 0);
    EXPECT_TRUE(Folders().empty());
    EXPECT_TRUE(std::filesystem::exists(Stick("a") + "/one.jpg"));
}

TEST_F(MediaTest, ScansOneFolder) {
    Connect();
    WriteFile(Stick("a") + "/keep.jpg");
    const std::string id = Mount("a", "U1");
    WriteFile(Stick("a") + "/x/one.jpg");
    WriteFile(Stick("a") + "/x/deep/two.jpg");
    const auto never = [](media_content_error_e, void*) { FAIL(); };
    EXPECT_EQ(media_content_scan_folder("/nowhere", false, never, nullptr),
              MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(media_content_scan_folder("/tmp", false, never, nullptr),
              MEDIA_CONTENT_ERROR_NOT_FOUND);
    ScanFolder(Stick("a") + "/x", false);
    EXPECT_EQ(Count({id}), 2);
    ScanFolder(Stick("a") + "/x", true);
    EXPECT_EQ(Count({id}), 3);
    std::filesystem::remove(Stick("a") + "/x/one.jpg");
    std::filesystem::remove_all(Stick("a") + "/x/deep");
    ScanFolder(Stick("a") + "/x", true);
    EXPECT_EQ(Count({id}), 1);
}

TEST_F(MediaTest, LooksAgainAtWhatChanged) {
    for (const char* name : {"/gone/1.jpg", "/gone/below/2.jpg", "/old.jpg", "/same.jpg"})
        WriteFile(Stick("a") + name);
    Connect();
    const std::string id = Mount("a", "U1");
    std::filesystem::remove_all(Stick("a") + "/gone");
    std::filesystem::remove(Stick("a") + "/old.jpg");
    WriteFile(Stick("a") + "/fresh/3.jpg");
    WriteFile(Stick("a") + "/fresh/below/4.jpg");
    platform::StorageContentChanged(
        Stick("a"), {Stick("a") + "/gone", Stick("a") + "/old.jpg", Stick("a") + "/fresh"});
    EXPECT_TRUE(WaitFor([&] {
        return IdsByPath().size() == 3 && IdsByPath().count(Stick("a") + "/fresh/below/4.jpg");
    }));
    // What .nomedia hides goes with all that lies below, and comes back with its removal.
    WriteFile(Stick("a") + "/fresh/.nomedia");
    platform::StorageContentChanged(Stick("a"), {Stick("a") + "/fresh/.nomedia"});
    EXPECT_TRUE(WaitFor([&] { return Count({id}) == 1; }));
    std::filesystem::remove(Stick("a") + "/fresh/.nomedia");
    platform::StorageContentChanged(Stick("a"), {Stick("a") + "/fresh/.nomedia"});
    EXPECT_TRUE(WaitFor([&] { return Count({id}) == 3; }));
    // The last files of a stick that is no mount point of its own: told so, it believes it.
    std::filesystem::remove_all(Stick("a") + "/fresh");
    std::filesystem::remove(Stick("a") + "/same.jpg");
    platform::StorageContentChanged(Stick("a"), {Stick("a") + "/fresh", Stick("a") + "/same.jpg"});
    EXPECT_TRUE(WaitFor([&] { return Count({id}) == 0; }));
}

// ---- updates ----------------------------------------------------------------------------------

struct Report {
    int error, pid, item, update, type;
    std::string id, path, mime;
};

void Collect(media_content_error_e error, int pid, media_content_db_update_item_type_e item,
             media_content_db_update_type_e update, media_content_type_e type, char* uuid,
             char* path, char* mime, void* data) {
    static_cast<std::vector<Report>*>(data)->push_back(
        {error, pid, item, update, type, uuid ? uuid : "", path ? path : "", mime ? mime : ""});
}

// Receivers stay for the life of the process: so does what they write to.
std::vector<Report>& Reports() {
    static auto* reports = new std::vector<Report>;
    return *reports;
}

std::vector<Report> Drain() {
    while (g_main_context_iteration(nullptr, FALSE)) continue;
    std::vector<Report> reports;
    reports.swap(Reports());
    return reports;
}

const Report* Find(const std::vector<Report>& reports, int item, int update,
                   const std::string& path) {
    for (const Report& report : reports)
        if (report.item == item && report.update == update && report.path == path) return &report;
    return nullptr;
}

TEST_F(MediaTest, ReportsChangesOnTheMainContext) {
    ASSERT_EQ(media_content_set_db_updated_cb(Collect, &Reports()), 0);
    ASSERT_EQ(media_content_set_db_updated_cb(Collect, &Reports()), 0);  // still once a change
    Drain();
    WriteFile(Stick("a") + "/one.jpg");
    WriteFile(Stick("a") + "/two.mp3");
    Connect();
    const std::string id = Mount("a", "U1");
    EXPECT_TRUE(Reports().empty());  // nobody has run the main context
    auto reports = Drain();
    ASSERT_EQ(reports.size(), 3u);
    const Report* added =
        Find(reports, MEDIA_CONTENT_ITEM_FILE, MEDIA_CONTENT_INSERT, Stick("a") + "/two.mp3");
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(added->type, MEDIA_CONTENT_TYPE_MUSIC);
    EXPECT_EQ(added->mime, "audio/mpeg");
    EXPECT_EQ(added->id, IdsByPath().at(Stick("a") + "/two.mp3"));
    const Report& end = reports.back();
    EXPECT_EQ(end.item, MEDIA_CONTENT_ITEM_DIRECTORY);
    EXPECT_EQ(end.update, MEDIA_CONTENT_UPDATE);
    EXPECT_EQ(end.type, MEDIA_CONTENT_TYPE_OTHERS);
    EXPECT_EQ(end.error, 0);
    EXPECT_EQ(end.pid, getpid());
    EXPECT_EQ(end.id, id);
    EXPECT_EQ(end.path, Stick("a"));
    EXPECT_EQ(end.mime, "");

    std::filesystem::rename(Stick("a") + "/two.mp3", Stick("a") + "/three.mp3");
    WriteFile(Stick("a") + "/one.jpg", "another content");
    ScanFolder(Stick("a"), false);
    media_info_delete_from_db(IdsByPath().at(Stick("a") + "/one.jpg").c_str());
    reports = Drain();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_NE(Find(reports, 0, MEDIA_CONTENT_UPDATE, Stick("a") + "/three.mp3"), nullptr);
    EXPECT_NE(Find(reports, 0, MEDIA_CONTENT_UPDATE, Stick("a") + "/one.jpg"), nullptr);
    EXPECT_NE(Find(reports, 0, MEDIA_CONTENT_DELETE, Stick("a") + "/one.jpg"), nullptr);
}

TEST_F(MediaTest, HoldsTheEndOfAScanUntilTheStorageIsAnnounced) {
    ASSERT_EQ(media_content_set_db_updated_cb(Collect, &Reports()), 0);
    Drain();
    WriteFile(Stick("a") + "/one.jpg");
    Connect();
    platform::MountedStorage storage;
    storage.uuid = "U1";
    storage.mountPath = Stick("a");
    storage.announced = false;
    platform::StorageMounted(storage);
    WaitForScan(StorageAt(Stick("a")));
    auto reports = Drain();
    EXPECT_EQ(Find(reports, MEDIA_CONTENT_ITEM_DIRECTORY, MEDIA_CONTENT_UPDATE, Stick("a")),
              nullptr);
    platform::StorageAnnounced(Stick("a"));
    platform::StorageAnnounced(Stick("a"));  // once is enough
    reports = Drain();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_NE(Find(reports, MEDIA_CONTENT_ITEM_DIRECTORY, MEDIA_CONTENT_UPDATE, Stick("a")),
              nullptr);
}

TEST_F(MediaTest, BoundsTheReportsThatNobodyFetches) {
    ASSERT_EQ(media_content_set_db_updated_cb(Collect, &Reports()), 0);
    Drain();
    for (int i = 0; i < 12000; ++i) {
        if (i == 0) std::filesystem::create_directories(Stick("a"));
        std::ofstream(Stick("a") + '/' + std::to_string(i) + ".jpg");
    }
    Connect();
    Mount("a", "U1");
    platform::StorageContentChanged(Stick("a"), {});
    WaitForScan(StorageAt(Stick("a")));
    const auto reports = Drain();
    EXPECT_LE(reports.size(), 10100u);
    int ends = 0;
    for (const Report& report : reports) ends += report.item == MEDIA_CONTENT_ITEM_DIRECTORY;
    EXPECT_GE(ends, 1);  // never dropped
}

}  // namespace
}  // namespace media_test
