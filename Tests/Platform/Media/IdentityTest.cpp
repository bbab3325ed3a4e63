// Which storage, which file: what stays the same when sticks come and go and files move.
#include <set>

#include "Library.h"

namespace media_test {
namespace {

namespace fs = std::filesystem;

class IdentityTest : public MediaTest {
protected:
    IdentityTest() {
        WriteFile(Stick("a/one.jpg"), "1");
        WriteFile(Stick("a/DCIM/two.jpg"), "22");
        WriteFile(Stick("a/DCIM/three.mp3"), "333");
    }
    void ExpectSoundAtTheEnd() {
        Disconnect();
        ExpectSound(DatabaseFile());
    }
};

TEST_F(IdentityTest, ComesBackAfterReplugRestartAndElsewhere) {
    Connect();
    const std::string storage = Mount("a", "U1");
    const Texts ids = Ids("a");
    ASSERT_EQ(ids.size(), 3u);

    Unmount("a");
    EXPECT_EQ(Count({}), 0);
    EXPECT_TRUE(List({storage}).empty());
    EXPECT_TRUE(Folders().empty());
    EXPECT_EQ(media_info_delete_from_db(ids.begin()->second.c_str()),
              MEDIA_CONTENT_ERROR_NOT_FOUND);

    // Another mount point, and a restart in between.
    ExpectSoundAtTheEnd();
    fs::rename(Stick("a"), Stick("b"));
    Connect();
    EXPECT_EQ(Mount("b", "U1"), storage);
    EXPECT_EQ(Ids("b"), ids);
    EXPECT_EQ(Folders().count(Stick("b/DCIM")), 1u);
}

TEST_F(IdentityTest, TellsStoragesApart) {
    WriteFile(Stick("b/b.jpg"));
    WriteFile(Stick("c/c.jpg"));
    Connect();
    const std::string a = Mount("a", "SAME");
    const std::string b = Mount("b", "SAME");  // a stick copied whole
    const std::string c = Mount("c", "");
    EXPECT_EQ(std::set<std::string>({a, b, c}).size(), 3u);
    EXPECT_EQ(Count({a}), 3);
    EXPECT_EQ(Count({b}), 1);
    EXPECT_EQ(Count({c}), 1);
    EXPECT_EQ(Count({}), 5);
    EXPECT_EQ(List({}).size(), 5u);
    // Mounting the same path again replaces what was known of it.
    const std::string other = Mount("c", "U3");
    EXPECT_NE(other, c);
    EXPECT_EQ(StorageAt(Stick("c")), other);
    EXPECT_EQ(Count({c}), 0);
    EXPECT_EQ(Count({other}), 1);
}

TEST_F(IdentityTest, FollowsFilesThatMove) {
    WriteFile(Stick("a/linked.jpg"), "4444");
    Connect();
    const std::string storage = Mount("a", "U1");
    const Texts before = Ids("a");
    fs::rename(Stick("a/one.jpg"), Stick("a/DCIM/uno.jpg"));
    fs::rename(Stick("a/DCIM/three.mp3"), Stick("a/drei.mp4"));
    fs::create_directories(Stick("a/new/deep"));
    fs::rename(Stick("a/DCIM/two.jpg"), Stick("a/new/deep/two.png"));
    fs::create_hard_link(Stick("a/linked.jpg"), Stick("a/second name.jpg"));
    TellChanged("a");
    Texts after = Ids("a");
    EXPECT_NE(after["second name.jpg"], before.at("linked.jpg"));
    after.erase("second name.jpg");
    EXPECT_EQ(after, (Texts{{"DCIM/uno.jpg", before.at("one.jpg")},
                            {"drei.mp4", before.at("DCIM/three.mp3")},
                            {"new/deep/two.png", before.at("DCIM/two.jpg")},
                            {"linked.jpg", before.at("linked.jpg")}}));
    // What depends on the name has followed it.
    EXPECT_EQ(Ids("a", {storage, "MEDIA_MIME_TYPE = 'image/png'"}).count("new/deep/two.png"), 1u);
    EXPECT_EQ(Ids("a", {storage, "MEDIA_TITLE = 'uno'"}).count("DCIM/uno.jpg"), 1u);
    EXPECT_EQ(Count({storage, "MEDIA_TYPE=1"}), 1);
    EXPECT_EQ(Count({storage, "MEDIA_TYPE=3"}), 0);
    // Changed in place: another content, the same item.
    WriteFile(Stick("a/drei.mp4"), "more than before");
    ScanFolder("a", false);
    EXPECT_EQ(Ids("a").at("drei.mp4"), before.at("DCIM/three.mp3"));
    ExpectSoundAtTheEnd();
}

// No file is lost and none bears another's id. The moved one keeps its own when the scan comes by
// its new place first; otherwise the file that took its name does.
TEST_F(IdentityTest, TellsAMovedFileFromTheOneInItsPlace) {
    WriteFile(Stick("a/z/last.jpg"), "55555");
    Connect();
    const std::string storage = Mount("a", "U1");
    const Texts before = Ids("a");
    fs::rename(Stick("a/one.jpg"), Stick("a/z/moved one.jpg"));
    WriteFile(Stick("a/one.jpg"), "a new one");
    fs::rename(Stick("a/z/last.jpg"), Stick("a/moved last.jpg"));
    WriteFile(Stick("a/z/last.jpg"), "a new last");
    TellChanged("a");
    const Texts after = Ids("a");
    ASSERT_EQ(after.size(), 6u);
    EXPECT_EQ(after.at("moved last.jpg"), before.at("z/last.jpg"));
    std::set<std::string> distinct;
    for (const auto& [path, id] : after) distinct.insert(id);
    EXPECT_EQ(distinct.size(), 6u);
    EXPECT_EQ(Count({storage, "MEDIA_SIZE = 9 OR MEDIA_SIZE = 10"}), 2);
    ExpectSoundAtTheEnd();
}

TEST_F(IdentityTest, KeepsWhatAnEmptyMountPointHides) {
    Connect();
    const std::string storage = Mount("a", "U1");
    const Texts ids = Ids("a");
    Unmount("a");
    fs::rename(Stick("a"), Stick("aside"));
    fs::create_directory(Stick("a"));
    EXPECT_EQ(Mount("a", "U1"), storage);
    EXPECT_EQ(ScanStatus(storage), MEDIA_STORAGE_SCAN_STOPPED);
    Unmount("a");
    // A mount point that has vanished altogether.
    fs::remove(Stick("a"));
    EXPECT_EQ(Mount("a", "U1"), storage);
    Unmount("a");
    fs::rename(Stick("aside"), Stick("a"));
    EXPECT_EQ(Mount("a", "U1"), storage);
    EXPECT_EQ(ScanStatus(storage), MEDIA_STORAGE_SCAN_COMPLETE);
    EXPECT_EQ(Ids("a"), ids);
}

TEST_F(IdentityTest, ForgetsStoragesUnseenForLong) {
    WriteFile(Stick("b/b.jpg"));
    Connect();
    const std::string a = Mount("a", "U1");
    Mount("b", "U2");
    const Texts ids = Ids("a");
    Unmount("a");
    Disconnect();
    Ask(DatabaseFile(), "UPDATE storage SET last_seen = last_seen - 181 * 86400");
    Connect();  // "b" is mounted and therefore seen
    EXPECT_TRUE(Until([&] {
        return Ask(DatabaseFile(), "SELECT count(*) FROM storage") == 1 && Count({}) == 1;
    }));
    EXPECT_EQ(Ask(DatabaseFile(), "SELECT count(*) FROM item"), 1);
    EXPECT_EQ(Mount("a", "U1"), a);  // the storage's id does not come from the database
    EXPECT_NE(Ids("a"), ids);
    ExpectSoundAtTheEnd();
}

TEST_F(IdentityTest, GivesNoOldIdToAnotherFile) {
    Connect();
    Mount("a", "U1");
    const Texts ids = Ids("a");
    Unmount("a");
    Disconnect();
    fs::remove(DatabaseFile());
    Connect();
    Mount("a", "U1");
    for (const auto& [path, id] : Ids("a"))
        for (const auto& [oldPath, oldId] : ids) EXPECT_NE(id, oldId);
}

}  // namespace
}  // namespace media_test
