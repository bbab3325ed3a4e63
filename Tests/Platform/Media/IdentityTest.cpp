// Which storage, which file: what stays the same when sticks come and go and files move.
#include <sys/stat.h>

#include "Library.h"
#include "MediaContent/Database.h"
#include "Sound.h"

namespace media_test {
namespace {

std::map<std::string, std::string> WithoutMount(const std::map<std::string, std::string>& ids,
                                                const std::string& mount) {
    std::map<std::string, std::string> relative;
    for (const auto& [path, id] : ids) relative[path.substr(mount.size())] = id;
    return relative;
}

class IdentityTest : public MediaTest {
protected:
    IdentityTest() {
        WriteFile(Stick("a") + "/one.jpg", "1");
        WriteFile(Stick("a") + "/DCIM/two.jpg", "22");
        WriteFile(Stick("a") + "/DCIM/three.mp3", "333");
    }
};

TEST_F(IdentityTest, ComesBackAfterReplugRestartAndElsewhere) {
    Connect();
    const std::string storage = Mount("a", "U1");
    const auto ids = WithoutMount(IdsByPath(), Stick("a"));
    ASSERT_EQ(ids.size(), 3u);

    Unmount("a");
    EXPECT_EQ(Count({}), 0);
    EXPECT_TRUE(List({storage}).empty());
    EXPECT_TRUE(Folders().empty());
    EXPECT_EQ(media_info_delete_from_db(ids.begin()->second.c_str()),
              MEDIA_CONTENT_ERROR_NOT_FOUND);

    // Another mount point, and a restart in between.
    Disconnect();
    ExpectSound(DatabaseFile());
    std::filesystem::rename(Stick("a"), Stick("b"));
    Connect();
    EXPECT_EQ(Mount("b", "U1"), storage);
    EXPECT_EQ(WithoutMount(IdsByPath(), Stick("b")), ids);
    EXPECT_EQ(Folders().count(Stick("b") + "/DCIM"), 1u);
}

TEST_F(IdentityTest, TellsStoragesApart) {
    WriteFile(Stick("b") + "/b.jpg");
    WriteFile(Stick("c") + "/c.jpg");
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
    WriteFile(Stick("a") + "/linked.jpg", "4444");
    Connect();
    const std::string storage = Mount("a", "U1");
    const auto before = WithoutMount(IdsByPath(), Stick("a"));
    namespace fs = std::filesystem;
    fs::rename(Stick("a") + "/one.jpg", Stick("a") + "/DCIM/uno.jpg");
    fs::rename(Stick("a") + "/DCIM/three.mp3", Stick("a") + "/drei.mp3");
    fs::create_directories(Stick("a") + "/new/deep");
    fs::rename(Stick("a") + "/DCIM/two.jpg", Stick("a") + "/new/deep/two.png");
    fs::create_hard_link(Stick("a") + "/linked.jpg", Stick("a") + "/second name.jpg");
    platform::StorageContentChanged(Stick("a"), {});
    WaitForScan(storage);
    const auto after = WithoutMount(IdsByPath(), Stick("a"));
    ASSERT_EQ(after.size(), 5u);
    EXPECT_EQ(after.at("/DCIM/uno.jpg"), before.at("/one.jpg"));
    EXPECT_EQ(after.at("/drei.mp3"), before.at("/DCIM/three.mp3"));
    EXPECT_EQ(after.at("/new/deep/two.png"), before.at("/DCIM/two.jpg"));
    EXPECT_EQ(after.at("/linked.jpg"), before.at("/linked.jpg"));
    EXPECT_NE(after.at("/second name.jpg"), before.at("/linked.jpg"));
    for (const Item& item : List({storage, "MEDIA_MIME_TYPE = 'image/png'"}))
        EXPECT_EQ(item.path, Stick("a") + "/new/deep/two.png");
    for (const Item& item : List({storage, "MEDIA_TITLE = 'uno'"}))
        EXPECT_EQ(item.path, Stick("a") + "/DCIM/uno.jpg");
    EXPECT_EQ(Count({storage, "MEDIA_TITLE = 'uno'"}), 1);
    // Changed in place: another content, the same item.
    WriteFile(Stick("a") + "/drei.mp3", "more than before");
    ScanFolder(Stick("a"), false);
    EXPECT_EQ(IdsByPath().at(Stick("a") + "/drei.mp3"), before.at("/DCIM/three.mp3"));
    Disconnect();
    ExpectSound(DatabaseFile());
}

// No file is lost and none bears another's id. The moved one keeps its own when the scan comes by
// its new place first; otherwise the file that took its name does.
TEST_F(IdentityTest, TellsAMovedFileFromTheOneInItsPlace) {
    WriteFile(Stick("a") + "/z/last.jpg", "55555");
    Connect();
    const std::string storage = Mount("a", "U1");
    const auto before = WithoutMount(IdsByPath(), Stick("a"));
    namespace fs = std::filesystem;
    fs::rename(Stick("a") + "/one.jpg", Stick("a") + "/z/moved one.jpg");
    WriteFile(Stick("a") + "/one.jpg", "a new one");
    fs::rename(Stick("a") + "/z/last.jpg", Stick("a") + "/moved last.jpg");
    WriteFile(Stick("a") + "/z/last.jpg", "a new last");
    platform::StorageContentChanged(Stick("a"), {});
    WaitForScan(storage);
    const auto after = WithoutMount(IdsByPath(), Stick("a"));
    ASSERT_EQ(after.size(), 6u);
    EXPECT_EQ(after.at("/moved last.jpg"), before.at("/z/last.jpg"));
    std::set<std::string> distinct;
    for (const auto& [path, id] : after) distinct.insert(id);
    EXPECT_EQ(distinct.size(), 6u);
    EXPECT_EQ(Count({storage, "MEDIA_SIZE = 9 OR MEDIA_SIZE = 10"}), 2);
    Disconnect();
    ExpectSound(DatabaseFile());
}

TEST_F(IdentityTest, KeepsWhatAnEmptyMountPointHides) {
    Connect();
    const std::string storage = Mount("a", "U1");
    const auto ids = IdsByPath();
    Unmount("a");
    std::filesystem::rename(Stick("a"), Stick("aside"));
    std::filesystem::create_directory(Stick("a"));
    EXPECT_EQ(Mount("a", "U1"), storage);
    EXPECT_EQ(ScanStatus(storage), MEDIA_STORAGE_SCAN_STOPPED);
    Unmount("a");
    // A mount point that has vanished altogether.
    std::filesystem::remove(Stick("a"));
    platform::MountedStorage gone;
    gone.uuid = "U1";
    gone.mountPath = Stick("a");
    platform::StorageMounted(gone);
    WaitForScan(storage);
    Unmount("a");
    std::filesystem::rename(Stick("aside"), Stick("a"));
    EXPECT_EQ(Mount("a", "U1"), storage);
    EXPECT_EQ(ScanStatus(storage), MEDIA_STORAGE_SCAN_COMPLETE);
    EXPECT_EQ(IdsByPath(), ids);
}

TEST_F(IdentityTest, ForgetsStoragesUnseenForLong) {
    WriteFile(Stick("b") + "/b.jpg");
    Connect();
    const std::string a = Mount("a", "U1");
    Mount("b", "U2");
    const auto ids = IdsByPath({a});
    Unmount("a");
    Disconnect();
    Ask(DatabaseFile(), "UPDATE storage SET last_seen = last_seen - 181 * 86400");
    Connect();  // "b" is mounted and therefore seen
    EXPECT_TRUE(WaitFor([&] {
        return Ask(DatabaseFile(), "SELECT count(*) FROM storage") == 1 && Count({}) == 1;
    }));
    EXPECT_EQ(Ask(DatabaseFile(), "SELECT count(*) FROM item"), 1);
    EXPECT_EQ(Mount("a", "U1"), a);  // the storage's id does not come from the database
    EXPECT_NE(IdsByPath({a}), ids);
    Disconnect();
    ExpectSound(DatabaseFile());
}

TEST_F(IdentityTest, GivesNoOldIdToAnotherFile) {
    Connect();
    Mount("a", "U1");
    const auto ids = IdsByPath();
    Unmount("a");
    Disconnect();
    std::filesystem::remove(DatabaseFile());
    Connect();
    Mount("a", "U1");
    for (const auto& [path, id] : IdsByPath()) {
        for (const auto& [oldPath, oldId] : ids) EXPECT_NE(id, oldId);
    }
}

}  // namespace
}  // namespace media_test
