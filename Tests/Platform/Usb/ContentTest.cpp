// What other programs change on a mounted storage.
#include <poll.h>

#include <algorithm>
#include <fstream>

#include "Recorder.h"
#include "UsbDevice/StorageWatch.h"

namespace fs = std::filesystem;

namespace {

class WatchTest : public UsbTest {
protected:
    // File times are no finer than the kernel's ticks: what was just made would count as changed.
    void Backdate() {
        const auto past = fs::file_time_type::clock::now() - std::chrono::hours(1);
        for (const auto& entry : fs::recursive_directory_iterator(root))
            fs::last_write_time(entry, past);
    }
    static bool Has(const std::string& line) {
        const Strings lines = Lines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
};

class ContentTest : public WatchTest {
protected:
    void SetUp() override {
        UsbTest::SetUp();
        MakeFolders({"stick/old/deep", "stick/.hidden", "other"});
        Backdate();
        Start();
        // A folder is watched once a change in it is told. The folders of a storage are watched
        // from its root on.
        for (const std::string last : {"stick/old/deep", "other"}) {
            WriteFile(last + "/first", "");
            ASSERT_TRUE(SawChangeIn(last, "first"));
        }
        Journal::Instance().Clear();
    }
    void ExpectNothingTellsOf(const std::string& part) {
        for (const std::string& line : Lines())
            EXPECT_EQ(std::string::npos, line.find(part)) << line;
    }
};

TEST_F(ContentTest, TellsOfFilesAndFoldersThatComeChangeAndGo) {
    WriteFile("stick/.secret.jpg", "x");
    WriteFile("stick/.hidden/a.jpg", "x");
    WriteFile("stick/new.jpg", "x");
    EXPECT_TRUE(SawChange("stick/new.jpg"));
    MakeFolders({"stick/new/deep"});
    WriteFile("stick/new/deep/a.jpg", "x");
    EXPECT_TRUE(SawChange("stick/new"));
    WriteFile("stick/new/deep/b.jpg", "x");
    EXPECT_TRUE(SawChange("stick/new/deep/b.jpg"));
    WriteFile("stick/new/.nomedia", "");
    EXPECT_TRUE(SawChange("stick/new/.nomedia"));
    fs::create_hard_link(root / "stick/new.jpg", root / "stick/again.jpg");
    EXPECT_TRUE(SawChange("stick/again.jpg"));
    fs::rename(root / "stick/new", root / "stick/renamed");
    EXPECT_TRUE(SawChange("stick/renamed"));
    Journal::Instance().Clear();
    WriteFile("stick/renamed/deep/b.jpg", "y");
    EXPECT_TRUE(SawChange("stick/renamed/deep/b.jpg"));
    fs::remove(root / "stick/old/deep/first");
    EXPECT_TRUE(SawChange("stick/old/deep/first"));
    ExpectNothingTellsOf("/.");
}

TEST_F(ContentTest, AFolderMovedToAnotherStorageIsChangedThere) {
    fs::rename(root / "stick/old", root / "other/old");
    EXPECT_TRUE(SawChange("other/old"));
    EXPECT_TRUE(SawChange("stick/old"));
    Journal::Instance().Clear();
    WriteFile("other/old/deep/b.jpg", "x");
    EXPECT_TRUE(SawChange("other/old/deep/b.jpg"));
    EXPECT_FALSE(Has("changed " + PathOf("stick/old/deep/b.jpg")));
}

TEST_F(ContentTest, TooManyChangesMeanAnything) {
    Journal::Instance().holdContentChanged = true;
    WriteFile("stick/first", "");
    ASSERT_TRUE(WaitFor("held " + PathOf("stick")));
    for (int i = 0; i < 1500; ++i) WriteFile("stick/" + std::to_string(i), "");
    Journal::Instance().holdContentChanged = false;
    EXPECT_TRUE(WaitFor("anything on " + PathOf("stick")));
}

TEST_F(ContentTest, LostEventsMeanAnything) {
    Journal::Instance().holdContentChanged = true;
    WriteFile("stick/first", "");
    ASSERT_TRUE(WaitFor("held " + PathOf("stick")));
    // More events than the kernel keeps while nobody reads them, of two files alone.
    for (int i = 0; i < 20000; ++i) WriteFile(i % 2 ? "stick/a" : "stick/b", "");
    Journal::Instance().holdContentChanged = false;
    EXPECT_TRUE(WaitFor("anything on " + PathOf("stick")));
    WriteFile("stick/old/deep/later", "");
    EXPECT_TRUE(SawChange("stick/old/deep/later"));
    EXPECT_FALSE(Has("anything on " + PathOf("other")));
}

TEST_F(ContentTest, AStorageThatWentIsNotWatched) {
    fs::rename(root / "stick", folder / "away");
    ASSERT_TRUE(WaitFor("blocked stick"));
    Journal::Instance().Clear();
    std::ofstream(folder / "away/old/x.jpg") << "x";
    WriteFile("other/x.jpg", "x");
    ASSERT_TRUE(SawChange("other/x.jpg"));
    ExpectNothingTellsOf("stick");
    ExpectNothingTellsOf("away");
}

// What is put into a folder between the storage's coming and the folder's watch is not missed, and
// what was there before is no change.
TEST_F(WatchTest, ChangesBeforeTheFoldersAreWatchedAreTold) {
    MakeFolders({"stick/late", "stick/quiet"});
    Backdate();
    platform::StorageWatch watch(PathOf("stick"));
    WriteFile("stick/late/a.jpg", "x");
    watch.Begin();
    while (Lines().empty()) {
        ASSERT_GE(watch.MsUntilFlush(), 0);
        pollfd polled{watch.Get(), POLLIN, 0};
        poll(&polled, 1, watch.MsUntilFlush());
        watch.Drain();
        watch.Flush();
    }
    EXPECT_TRUE(SawChange("stick/late"));
    EXPECT_EQ(-1, watch.MsUntilFlush());
    EXPECT_FALSE(Has("changed " + PathOf("stick/quiet")));
}

}  // namespace
