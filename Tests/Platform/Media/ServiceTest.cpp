// Connection, storages, listings and updates, as seen through the C interface.
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "Library.h"

namespace media_test {
namespace {

namespace fs = std::filesystem;

TEST_F(MediaTest, ListsWhatTheStickHolds) {
    for (const char* name : {"one.jpg", "DCIM/100/two.JPG", "Music/song.mp3", "readme.txt",
                             ".hidden/three.jpg", "covers/.nomedia", "covers/deep/four.jpg"})
        WriteFile(Stick("a/") + name);
    Connect();
    const std::string id = Mount("a", "1234-ABCD");
    EXPECT_EQ(ScanStatus(id), MEDIA_STORAGE_SCAN_COMPLETE);
    EXPECT_EQ(Count({id}), 3);
    EXPECT_EQ(Count({id, "MEDIA_TYPE=0"}), 2);
    EXPECT_EQ(List({id, "MEDIA_TYPE=0"}).size(), 2u);
    EXPECT_EQ(Ids("a", {id, "MEDIA_TYPE=3"}).count("Music/song.mp3"), 1u);
    EXPECT_EQ(Count({"no such storage", "MEDIA_TYPE=0"}), 0);
    EXPECT_TRUE(List({"no such storage", "MEDIA_TYPE=0"}).empty());

    const auto folders = Folders({id, "FOLDER_STORAGE_TYPE = 1"});
    ASSERT_EQ(folders.size(), 4u);
    EXPECT_EQ(CountFolder(folders.at(Stick("a/DCIM/100"))), 1);
    EXPECT_EQ(CountFolder(folders.at(Stick("a/DCIM"))), 0);
    const char* kinds = " (MEDIA_TYPE = 0 OR MEDIA_TYPE = 1 OR MEDIA_TYPE = 2 OR MEDIA_TYPE = 3) ";
    EXPECT_EQ(ListFolder(folders.at(Stick("a")), {"", kinds}).size(), 1u);
    EXPECT_EQ(CountFolder(folders.at(Stick("a")), {"", kinds}), 1);
    EXPECT_EQ(CountFolder("", {"", kinds}), 0);
    EXPECT_TRUE(ListFolder("nonsense").empty());
    EXPECT_EQ(Folders({id, "FOLDER_NAME = 'dcim'"}).size(), 0u);
    EXPECT_EQ(Folders({id, "FOLDER_NAME = 'dcim'", MEDIA_CONTENT_COLLATE_NOCASE}).size(), 1u);
}

TEST_F(MediaTest, AnswersWithoutConnection) {
    constexpr auto kClosed = MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    EXPECT_EQ(media_content_disconnect(), kClosed);
    EXPECT_EQ(Count({}, kClosed), -1);
    EXPECT_EQ(media_content_scan_folder(
                  "/tmp", false, [](media_content_error_e, void*) {}, nullptr),
              kClosed);
    // Counted: one of two disconnects leaves the database open.
    Connect();
    Connect();
    Disconnect();
    EXPECT_EQ(Count({}), 0);
    Disconnect();
    EXPECT_EQ(Count({}, kClosed), -1);
}

TEST_F(MediaTest, RemembersStoragesMountedWhileClosed) {
    WriteFile(Stick("a/one.jpg"));
    StartMount("a/", "U1");
    Connect();
    const std::string id = StorageAt(Stick("a"));
    ASSERT_NE(id, "");
    WaitForScan(id);
    EXPECT_EQ(Count({id}), 1);
    // Gone while closed, too.
    Disconnect();
    Unmount("a");
    Connect();
    EXPECT_EQ(StorageAt(Stick("a")), "");
    EXPECT_EQ(Count({}), 0);
    media_storage_scan_status_e status;
    EXPECT_EQ(media_storage_get_scan_status(id.c_str(), &status), MEDIA_CONTENT_ERROR_NOT_FOUND);
}

// What a client sees of the values of a record is in Tests/EndToEnd.
TEST_F(MediaTest, MetadataOutlivesTheRecordThatItCameFrom) {
    WriteFile(Stick("a/pic.v2.jpg"));
    Connect();
    Mount("a", "U1");
    media_info_h media = nullptr;
    const auto clone = [](media_info_h item, void* out) {
        return media_info_clone(static_cast<media_info_h*>(out), item) == 0;
    };
    ASSERT_EQ(media_info_foreach_media_from_db(nullptr, clone, &media), 0);
    ASSERT_NE(media, nullptr);
    EXPECT_EQ(Describe(media).title, "pic.v2");
    char* nothing = nullptr;
    EXPECT_EQ(media_info_get_description(media, &nothing), 0);
    EXPECT_EQ(nothing, nullptr);
    audio_meta_h audio = nullptr;
    EXPECT_EQ(media_info_get_audio(media, &audio), MEDIA_CONTENT_ERROR_INVALID_OPERATION);
    image_meta_h image = nullptr;
    ASSERT_EQ(media_info_get_image(media, &image), 0);
    EXPECT_EQ(media_info_destroy(media), 0);
    int width = -1;
    EXPECT_EQ(image_meta_get_width(image, &width), 0);
    EXPECT_EQ(width, 0);
    EXPECT_EQ(image_meta_destroy(image), 0);
}

// ---- inserting, deleting, scanning a folder ---------------------------------------------------

TEST_F(MediaTest, InsertsOnlyRegularFilesOfMountedStorages) {
    WriteFile(Stick("a/seen.jpg"));
    Connect();
    const std::string id = Mount("a", "U1");
    for (const char* name : {"a/new/later.mp3", "a/notes.txt", "b/not mounted.jpg"})
        WriteFile(Stick(name));
    fs::create_symlink(Stick("b/not mounted.jpg"), Stick("a/out.jpg"));
    fs::create_symlink("seen.jpg", Stick("a/in.jpg"));
    ASSERT_EQ(mkfifo(Stick("a/pipe.jpg").c_str(), 0600), 0);

    media_info_h media = nullptr;
    const std::pair<const char*, int> refused[] = {
        {"a/missing.jpg", MEDIA_CONTENT_ERROR_NOT_FOUND},
        {"b/not mounted.jpg", MEDIA_CONTENT_ERROR_NOT_FOUND},
        {"a/out.jpg", MEDIA_CONTENT_ERROR_NOT_FOUND},
        {"a/../b/not mounted.jpg", MEDIA_CONTENT_ERROR_NOT_FOUND},
        {"a/new", MEDIA_CONTENT_ERROR_UNSUPPORTED},
        {"a", MEDIA_CONTENT_ERROR_UNSUPPORTED},
        {"a/pipe.jpg", MEDIA_CONTENT_ERROR_UNSUPPORTED},
    };
    for (const auto& [name, error] : refused)
        EXPECT_EQ(media_info_insert_to_db(Stick(name).c_str(), &media), error) << name;
    EXPECT_EQ(media, nullptr);
    EXPECT_EQ(Count({id}), 1);

    const auto insert = [this](const std::string& name) {
        media_info_h made = nullptr;
        EXPECT_EQ(media_info_insert_to_db(Stick(name).c_str(), &made), 0) << name;
        const Item item = Describe(made);
        media_info_destroy(made);
        return item;
    };
    const Item song = insert("a/new/later.mp3");
    EXPECT_EQ(song.type, MEDIA_CONTENT_TYPE_MUSIC);
    EXPECT_EQ(Count({id, "MEDIA_TYPE=3"}), 1);
    // Again, and through a link inside: the same record.
    EXPECT_EQ(insert("a/new/../new/later.mp3"), song);
    EXPECT_EQ(insert("a/in.jpg").path, Stick("a/seen.jpg"));

    // What no scan would list stays as long as the file does.
    EXPECT_EQ(insert("a/notes.txt").type, MEDIA_CONTENT_TYPE_OTHERS);
    TellChanged("a");
    EXPECT_EQ(Count({id}), 3);
    fs::remove(Stick("a/notes.txt"));
    ScanFolder("a", false);
    EXPECT_EQ(Count({id}), 2);
}

TEST_F(MediaTest, DeletesRecordsAndNoFiles) {
    WriteFile(Stick("a/one.jpg"));
    Connect();
    const std::string storage = Mount("a", "U1");
    const std::string id = Ids("a").at("one.jpg");
    for (const std::string& other : {std::string("1"), std::string("nonsense-1"), std::string("-1"),
                                     std::string("0000000000000000-1"), id + "0"})
        EXPECT_EQ(media_info_delete_from_db(other.c_str()), MEDIA_CONTENT_ERROR_NOT_FOUND) << other;
    EXPECT_EQ(media_info_delete_from_db(id.c_str()), 0);
    EXPECT_EQ(media_info_delete_from_db(id.c_str()), MEDIA_CONTENT_ERROR_NOT_FOUND);
    EXPECT_EQ(Count({storage}), 0);
    EXPECT_TRUE(Folders().empty());
    EXPECT_TRUE(fs::exists(Stick("a/one.jpg")));
}

TEST_F(MediaTest, ScansOneFolder) {
    Connect();
    WriteFile(Stick("a/keep.jpg"));
    const std::string id = Mount("a", "U1");
    WriteFile(Stick("a/x/one.jpg"));
    WriteFile(Stick("a/x/deep/two.jpg"));
    const auto never = [](media_content_error_e, void*) { FAIL(); };
    for (const char* elsewhere : {"/nowhere", "/tmp"})
        EXPECT_EQ(media_content_scan_folder(elsewhere, false, never, nullptr),
                  MEDIA_CONTENT_ERROR_NOT_FOUND);
    ScanFolder("a/x", false);
    EXPECT_EQ(Count({id}), 2);
    ScanFolder("a/x", true);
    EXPECT_EQ(Count({id}), 3);
    WriteFile(Stick("a/.hidden/deep/three.jpg"));
    for (const char* hidden : {"a/.hidden", "a/.hidden/deep"}) ScanFolder(hidden, true);
    EXPECT_EQ(Count({id}), 3) << "hidden to whoever asks for it, too";
    fs::remove(Stick("a/x/one.jpg"));
    fs::remove_all(Stick("a/x/deep"));
    ScanFolder("a/x", true);
    EXPECT_EQ(Count({id}), 1);
}

// A second of silence.
const std::string kSong(
    "RIFF\x64\x1f\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x8\0data"
    "\x40\x1f\0\0",
    44);

TEST_F(MediaTest, WhatNoHelperCouldReadIsReadOnceOneCan) {
    WriteFile(Stick("a/song.wav"), kSong + std::string(8000, '\0'));
    for (const auto& [helper, milliseconds] :
         {std::make_pair("/nonexistent/extractor", 0), std::make_pair(EXTRACT_HELPER, 1000)}) {
        platform::ConfigureMediaService({DatabaseFile(), helper});
        Connect();
        EXPECT_EQ(Count({Mount("a", "U1")}), 1);
        Unmount("a");
        Disconnect();
        EXPECT_EQ(Ask(DatabaseFile(), "SELECT duration FROM item"), milliseconds);
    }
}

TEST_F(MediaTest, LooksAgainAtWhatChanged) {
    for (const char* name : {"a/gone/1.jpg", "a/gone/below/2.jpg", "a/old.jpg", "a/same.jpg"})
        WriteFile(Stick(name));
    Connect();
    Mount("a", "U1");
    const auto waitForCount = [](int count) {
        EXPECT_TRUE(Until([&] { return Count({}) == count; })) << Count({}) << " not " << count;
    };
    fs::remove_all(Stick("a/gone"));
    fs::remove(Stick("a/old.jpg"));
    WriteFile(Stick("a/fresh/3.jpg"));
    WriteFile(Stick("a/fresh/below/4.jpg"));
    TellChanged("a", {"gone", "old.jpg", "fresh"});
    EXPECT_TRUE(Until([&] { return Ids("a").size() == 3 && Ids("a").count("fresh/below/4.jpg"); }));
    // What .nomedia hides goes with all that lies below, and comes back with its removal.
    WriteFile(Stick("a/fresh/.nomedia"));
    TellChanged("a", {"fresh/.nomedia"});
    waitForCount(1);
    fs::remove(Stick("a/fresh/.nomedia"));
    TellChanged("a", {"fresh/.nomedia"});
    waitForCount(3);
    // The last files of a stick that is no mount point of its own: told so, it believes it.
    fs::remove_all(Stick("a/fresh"));
    fs::remove(Stick("a/same.jpg"));
    TellChanged("a", {"fresh", "same.jpg"});
    waitForCount(0);
}

// ---- updates ----------------------------------------------------------------------------------

// Each report as "item inserted TYPE ID PATH MIME", or "folder ..." for the end of a scan.
using Reports = std::vector<std::string>;

void Collect(media_content_error_e error, int pid, media_content_db_update_item_type_e item,
             media_content_db_update_type_e update, media_content_type_e type, char* uuid,
             char* path, char* mime, void* data) {
    EXPECT_EQ(error, 0);
    EXPECT_EQ(pid, getpid());
    std::string line = item == MEDIA_CONTENT_ITEM_FILE ? "item" : "folder";
    line += update == MEDIA_CONTENT_INSERT   ? " inserted "
            : update == MEDIA_CONTENT_DELETE ? " deleted "
                                             : " updated ";
    line += std::to_string(type);
    for (const char* text : {uuid, path, mime}) line += std::string(" ") + (text ? text : "-");
    static_cast<Reports*>(data)->push_back(line);
}

class ReportTest : public MediaTest {
protected:
    ReportTest() {
        // Twice, and still each change is told once.
        for (int i = 0; i < 2; ++i) EXPECT_EQ(media_content_set_db_updated_cb(Collect, &Told()), 0);
        Drain();
    }
    // Receivers stay for the life of the process: so does what they write to.
    static Reports& Told() {
        static auto* reports = new Reports;
        return *reports;
    }
    // Runs the main context and returns what it brought.
    static Reports Drain() {
        while (g_main_context_iteration(nullptr, FALSE)) continue;
        return std::exchange(Told(), {});
    }
    std::string Line(const char* what, const std::string& id, const std::string& path,
                     const char* mime) const {
        return std::string(what) + " " + id + " " + Stick(path) + " " + mime;
    }
    static void ExpectInAnyOrder(const Reports& got, const Reports& expected) {
        EXPECT_EQ(std::multiset<std::string>(got.begin(), got.end()),
                  std::multiset<std::string>(expected.begin(), expected.end()));
    }
};

TEST_F(ReportTest, TellsOfChangesOnTheMainContext) {
    WriteFile(Stick("a/one.jpg"));
    WriteFile(Stick("a/two.mp3"));
    Connect();
    const std::string storage = Mount("a", "U1");
    EXPECT_TRUE(Told().empty());  // nobody has run the main context
    auto reports = Drain();
    const Texts ids = Ids("a");
    const std::string end = Line("folder updated 4", storage, "a", "-");
    ExpectInAnyOrder(reports,
                     {Line("item inserted 0", ids.at("one.jpg"), "a/one.jpg", "image/jpeg"),
                      Line("item inserted 3", ids.at("two.mp3"), "a/two.mp3", "audio/mpeg"), end});
    EXPECT_EQ(reports.back(), end);

    fs::rename(Stick("a/two.mp3"), Stick("a/three.mp3"));
    WriteFile(Stick("a/one.jpg"), "another content");
    ScanFolder("a", false);
    media_info_delete_from_db(ids.at("one.jpg").c_str());
    ExpectInAnyOrder(Drain(),
                     {Line("item updated 3", ids.at("two.mp3"), "a/three.mp3", "audio/mpeg"),
                      Line("item updated 0", ids.at("one.jpg"), "a/one.jpg", "image/jpeg"),
                      Line("item deleted 0", ids.at("one.jpg"), "a/one.jpg", "image/jpeg")});
}

TEST_F(ReportTest, ThoseThatNobodyFetchesAreBounded) {
    fs::create_directories(Stick("a"));
    for (int i = 0; i < 12000; ++i) std::ofstream(Stick("a/") + std::to_string(i) + ".jpg");
    Connect();
    Mount("a", "U1");
    TellChanged("a");
    const auto reports = Drain();
    EXPECT_LE(reports.size(), 10100u);
    int ends = 0;
    for (const std::string& report : reports) ends += report.rfind("folder", 0) == 0;
    EXPECT_GE(ends, 1);  // never dropped
}

}  // namespace
}  // namespace media_test
