// Sticks that are pulled out at the worst moment, that cannot be read, that hold what no stick
// should.
#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <optional>
#include <set>

#include "Endurance/Faults/FaultTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using StickFaults = FaultTest;

TEST_F(StickFaults, PulledOutDuringAScan) {
    AddPhotos("STICK", 1500);
    const auto other = AddPhotos("OTHER");
    StartService();
    MediaClient visitor(Socket());
    for (int round = 0; round < 6; ++round) {
        m_sticks.PullOut("STICK");
        ASSERT_TRUE(visitor.Raw().Wait("USB_DISCONNECTED")) << m_service->Log();
        EXPECT_EQ(visitor.Query(visitor.StorageAt(other)), kPhotos);
        m_sticks.PlugIn("STICK");
        ASSERT_TRUE(visitor.Raw().Wait("USB_CONNECTED")) << m_service->Log();
    }
    ASSERT_TRUE(Until([&] { return !visitor.StorageAt(m_sticks.PathOf("STICK")).empty(); }));
    EXPECT_EQ(visitor.Query(visitor.StorageAt(m_sticks.PathOf("STICK"))), 1500);
}

// A query of a stick that has gone fails with its event at once, or with the scan's time limit;
// a page is sent with what there is. Then all is as before.
TEST_F(StickFaults, PulledOutDuringAQueryAndAFetch) {
    const auto stick = AddPhotos("STICK", 300);
    StartService();
    MediaClient visitor(Socket());
    const std::string storage = visitor.StorageAt(stick);
    ASSERT_EQ(visitor.Query(storage), 300);
    for (int round = 0; round < 5; ++round) {
        auto& client = visitor.Raw();
        client.TakeAll();
        for (int i = 0; i < 20; ++i) {
            client.Execute(visitor.Handle(), "Query", storage, "photo", "", "false");
            client.Execute(visitor.Handle(), "Fetch", "0", "300");
            if (i == round * 4) m_sticks.PullOut("STICK");
        }
        std::set<int> results;
        for (int i = 0; i < 20; ++i) {
            const auto event = client.Wait("QUERY_COMPLETED");
            ASSERT_TRUE(event) << "query " << i << " has no event";
            const Json::Value payload = Parse(event->payload);
            ASSERT_TRUE(payload.isObject());
            results.insert(payload["result"].asInt());
        }
        EXPECT_TRUE(results.count(1) || results.count(0)) << "neither success nor failure";
        ASSERT_TRUE(client.Wait("USB_DISCONNECTED"));
        m_sticks.PlugIn("STICK");
        ASSERT_TRUE(client.Wait("USB_CONNECTED")) << m_service->Log();
        ASSERT_TRUE(client.Wait("SYNC_COMPLETED")) << m_service->Log();
        ASSERT_EQ(visitor.Query(storage), 300) << "after round " << round;
        EXPECT_NE(visitor.FetchEvent(0, 100), "");
    }
}

TEST_F(StickFaults, OddNamesAndHostileFilesEndNoScan) {
    const fs::path hostile = m_scratch / "hostile";
    MakeSamples("--hostile", hostile);
    const auto stick = AddPhotos("STICK");
    fs::rename(hostile, stick / "HOSTILE");
    std::ofstream(stick / "new\nline.jpg") << "x";
    std::ofstream(stick / "not \xff\xfe UTF-8.jpg") << "x";
    std::ofstream(stick / (std::string(251, 'n') + ".jpg")) << "x";
    fs::create_directory_symlink(stick, stick / "loop");
    StartService();
    MediaClient visitor(Socket());
    const std::string storage = visitor.StorageAt(stick);
    const int count = visitor.Query(storage);
    EXPECT_GE(count, kPhotos + 3) << m_service->Log();
    int seen = 0;
    for (int start = 0; start < count; start += 500)
        seen += static_cast<int>(visitor.Fetch(start, 500)["photos"].size());
    EXPECT_EQ(seen, count);
}

// Songs of 10 GiB that are a header and a hole, a chunk of nothing every 8 bytes, cost their reader
// its whole deadline each.
class HangingStick : public FaultTest {
protected:
    void SetUp() override {
        fs::create_directories(m_made);
        AddPhotos("GOOD");
        const fs::path photo = PhotoOn("GOOD");
        for (int i = 0; i < 200; ++i) {
            const fs::path song = m_made / (std::to_string(i) + ".wav");
            std::ofstream(song) << "RIFF\xff\xff\xff\x7fWAVE";
            fs::resize_file(song, 10ull << 30);
            // Whatever order the file system hands them out in, most come after some songs.
            if (i % 10 == 0) fs::copy_file(photo, m_made / (std::to_string(i) + ".jpg"));
        }
        m_sticks.PullOut("GOOD");
    }
    fs::path PhotoOn(const char* stick) const { return m_sticks.PathOf(stick) / "IMG_0001.jpg"; }
    void Replug(MediaClient& visitor) {
        m_sticks.PullOut("BAD");
        ASSERT_TRUE(visitor.Raw().Wait("USB_DISCONNECTED"));
        visitor.Raw().TakeAll();
        m_sticks.PlugIn("BAD");
        ASSERT_TRUE(visitor.Raw().Wait("SYNC_COMPLETED"));
    }
    // The photos that are listed by their names alone.
    static size_t Unread(MediaClient& visitor, const std::string& storage) {
        EXPECT_EQ(visitor.Query(storage), 20);
        const Json::Value photos = visitor.Fetch(0, 20)["photos"];
        return std::count_if(photos.begin(), photos.end(), [](const Json::Value& photo) {
            return photo["width"].asString() == "0";
        });
    }

    const fs::path m_made = m_scratch / "away/BAD";
};

TEST_F(HangingStick, HoldsUpNobodyElseAndIsListedByItsNames) {
    StartService();
    MediaClient visitor(Socket());
    m_sticks.PlugIn("BAD");
    const std::string bad = visitor.Storage("BAD")["id"].asString();
    m_sticks.PlugIn("GOOD");
    const std::string good = visitor.Storage("GOOD")["id"].asString();
    EXPECT_EQ(visitor.Query(good), kPhotos) << m_service->Log();
    const fs::path late = m_sticks.PathOf("GOOD") / "late.jpg";
    fs::copy_file(PhotoOn("GOOD"), late);
    visitor.Run("RegisterContents", good, "{\"fullpaths\":[\"" + late.string() + "\"]}");
    EXPECT_TRUE(visitor.Raw().Wait("CONTETNS_REGISTER_COMPLETED"));

    EXPECT_EQ(visitor.Query(bad, "music"), 200) << m_service->Log();
    EXPECT_EQ(Told("listed by their names"), 1u);
    const size_t unread = Unread(visitor, bad);
    EXPECT_GT(unread, 0u) << "no file was passed over";
    // As long as it stays the same it costs no more; without its bad files it is read.
    const size_t gaveUp = Told("took too long");
    Replug(visitor);
    EXPECT_EQ(Told("took too long"), gaveUp);
    EXPECT_EQ(Unread(visitor, bad), unread);
    for (int i = 0; i < 200; ++i) fs::remove(m_sticks.PathOf("BAD") / (std::to_string(i) + ".wav"));
    Replug(visitor);
    EXPECT_EQ(Unread(visitor, bad), 0u);
}

// A stick of photos whose files lie on a file system in a file, which is then cut short with the
// mount none the wiser.
class FailingStick : public FaultTest {
protected:
    void SetUp() override {
        if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
        RunCommand("truncate -s 16M '" + m_image + "' && mkfs.ext4 -q -m 0 '" + m_image + "'");
        const fs::path source = AddPhotos("SOURCE");
        const OwnMount mount = Mount();
        RunCommand("cp -r '" + source.string() + "' '" + m_stick.string() + "'");
        m_sticks.PullOut("SOURCE");
        RunCommand("sync -f '" + m_stick.string() + "'");
    }
    OwnMount Mount() const { return OwnMount("mount -o loop '" + m_image + "'", m_stick); }

    void ForEachPhoto(const std::function<void(int file)>& look) const {
        for (const auto& entry : fs::recursive_directory_iterator(m_stick)) {
            if (entry.path().extension() != ".jpg") continue;
            const int file = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
            look(file);
            close(file);
        }
    }

    const std::string m_image = m_scratch / "image";
    const fs::path m_stick = m_sticks.PathOf("STICK");
};

// Where in the image the file's bytes begin.
std::optional<uint64_t> PlaceOf(int file) {
    alignas(fiemap) char room[sizeof(fiemap) + sizeof(fiemap_extent)] = {};
    auto* map = reinterpret_cast<fiemap*>(room);
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_extent_count = 1;
    if (ioctl(file, FS_IOC_FIEMAP, map) != 0 || map->fm_mapped_extents == 0) return std::nullopt;
    return map->fm_extents[0].fe_physical;
}

bool FailsToRead(int file) {
    char byte = 0;
    return read(file, &byte, 1) < 0 && errno == EIO;
}

TEST_F(FailingStick, FilesThatCannotBeReadAreListedByWhatTheirNamesTell) {
    const OwnMount mount = Mount();
    std::vector<uint64_t> places;
    ForEachPhoto([&](int file) {
        if (const auto place = PlaceOf(file)) places.push_back(*place);
    });
    ASSERT_EQ(places.size(), static_cast<size_t>(kPhotos));
    std::sort(places.begin(), places.end());
    fs::resize_file(m_image, places[kPhotos / 2]);  // the later half of them is lost
    int failing = 0;
    ForEachPhoto([&](int file) { failing += FailsToRead(file); });
    ASSERT_GT(failing, 0) << "no fault was injected";
    ASSERT_LT(failing, kPhotos) << "nothing is left that can be read";
    StartService();
    EXPECT_EQ(CountOn(m_stick), kPhotos) << m_service->Log();
    MediaClient visitor(Socket());
    visitor.Query(visitor.StorageAt(m_stick));
    EXPECT_NE(visitor.FetchEvent(0, 100), "");
}

// What is known of a stick stays known when its folders cannot be read for now.
TEST_F(FailingStick, FoldersThatCannotBeReadCostNoItems) {
    {
        const OwnMount mount = Mount();
        StartService();
        ASSERT_EQ(CountOn(m_stick), kPhotos);
        StopService();
    }
    const OwnMount mount = Mount();
    fs::resize_file(m_image, 64 * 1024);
    std::error_code unreadable;
    size_t seen = 0;
    for (fs::recursive_directory_iterator at(m_stick, unreadable), end; !unreadable && at != end;
         at.increment(unreadable))
        ++seen;
    ASSERT_TRUE(unreadable) << "no fault was injected: " << seen << " entries";
    StartService();
    MediaClient visitor(Socket());
    ASSERT_TRUE(visitor.IsConnected()) << m_service->Log();
    const std::string storage = visitor.StorageAt(m_stick);
    ASSERT_NE(storage, "");
    // The scan began with the connection: its end may have been told before anyone listened.
    ASSERT_TRUE(m_service->WaitForLog("ended with error")) << m_service->Log();
    EXPECT_EQ(visitor.Query(storage, "photo", "", "false"), kPhotos) << m_service->Log();
}

}  // namespace
}  // namespace test
