// Sticks that are pulled out at the worst moment, that cannot be read, that hold what no stick
// should.
#include <fcntl.h>
#include <json/json.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "Endurance/Faults/FaultTest.h"

namespace endurance {
namespace {

namespace fs = std::filesystem;

constexpr int kPhotos = 40;

class StickFaults : public FaultTest {
protected:
    // The files of a failing stick lie on a file system in a file, which is then cut short.
    std::string MountImage() const { return "mount -o loop '" + Image() + "'"; }
    std::string Image() const { return (m_scratch.Path() / "image").string(); }
    // Where in the image the photos' bytes lie, in order.
    static std::vector<uint64_t> PlacesOfPhotos(const fs::path& stick) {
        std::vector<uint64_t> places;
        for (const auto& entry : fs::recursive_directory_iterator(stick)) {
            if (entry.path().extension() != ".jpg") continue;
            alignas(fiemap) char room[sizeof(fiemap) + sizeof(fiemap_extent)] = {};
            auto* map = reinterpret_cast<fiemap*>(room);
            map->fm_length = FIEMAP_MAX_OFFSET;
            map->fm_extent_count = 1;
            const int file = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
            if (ioctl(file, FS_IOC_FIEMAP, map) == 0 && map->fm_mapped_extents > 0)
                places.push_back(map->fm_extents[0].fe_physical);
            close(file);
        }
        std::sort(places.begin(), places.end());
        return places;
    }
    std::vector<fs::path> Unreadable(const fs::path& stick) const {
        std::vector<fs::path> failing;
        for (const auto& entry : fs::recursive_directory_iterator(stick)) {
            if (entry.path().extension() != ".jpg") continue;
            const int file = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
            char byte = 0;
            if (read(file, &byte, 1) < 0 && errno == EIO) failing.push_back(entry.path());
            close(file);
        }
        return failing;
    }
};

TEST_F(StickFaults, PulledOutDuringAScan) {
    AddPhotos("STICK", 1500);
    const auto other = AddPhotos("OTHER", kPhotos);
    Start();
    Visitor visitor(*m_service);
    for (int round = 0; round < 6; ++round) {
        m_sticks.PullOut("STICK");
        ASSERT_TRUE(visitor.Client().Wait("USB_DISCONNECTED")) << m_service->Log();
        EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(other)), kPhotos);
        m_sticks.PlugIn("STICK");
        ASSERT_TRUE(visitor.Client().Wait("USB_CONNECTED")) << m_service->Log();
    }
    ASSERT_TRUE(WaitUntil([&] { return !visitor.StorageAt(m_sticks.PathOf("STICK")).empty(); }));
    EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(m_sticks.PathOf("STICK"))), 1500);
}

// A query of a stick that has gone fails with its event at once, or with the scan's time limit;
// a page is sent with what there is. Then all is as before.
TEST_F(StickFaults, PulledOutDuringAQueryAndAFetch) {
    const auto stick = AddPhotos("STICK", 300);
    Start();
    Visitor visitor(*m_service);
    const std::string storage = visitor.StorageAt(stick);
    ASSERT_EQ(visitor.CountPhotos(storage), 300);
    for (int round = 0; round < 5; ++round) {
        auto& client = visitor.Client();
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
            Json::Value payload;
            ASSERT_TRUE(Json::Reader().parse(event->payload, payload));
            results.insert(payload["result"].asInt());
        }
        EXPECT_TRUE(results.count(1) || results.count(0)) << "neither success nor failure";
        ASSERT_TRUE(client.Wait("USB_DISCONNECTED"));
        m_sticks.PlugIn("STICK");
        ASSERT_TRUE(client.Wait("USB_CONNECTED")) << m_service->Log();
        ASSERT_TRUE(client.Wait("SYNC_COMPLETED")) << m_service->Log();
        ASSERT_EQ(visitor.CountPhotos(storage), 300) << "after round " << round;
        EXPECT_NE(visitor.Fetch(0, 100), "");
    }
}

TEST_F(StickFaults, FilesThatCannotBeReadAreListedByWhatTheirNamesTell) {
    if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
    const fs::path stick = m_sticks.PathOf("STICK");
    RunCommand("truncate -s 16M '" + Image() + "' && mkfs.ext4 -q -m 0 '" + Image() + "'");
    {
        const OwnMount mount(MountImage(), stick);
        AddPhotos("SOURCE", kPhotos);
        RunCommand("cp -r '" + (m_sticks.Root() / "SOURCE").string() + "' '" + stick.string() +
                   "'");
        m_sticks.PullOut("SOURCE");
        RunCommand("sync -f '" + stick.string() + "'");
    }
    const OwnMount mount(MountImage(), stick);
    // The later half of them is lost, with the mount none the wiser.
    const std::vector<uint64_t> places = PlacesOfPhotos(stick);
    ASSERT_EQ(places.size(), static_cast<size_t>(kPhotos));
    fs::resize_file(Image(), places[kPhotos / 2]);
    const size_t failing = Unreadable(stick).size();
    ASSERT_GT(failing, 0u) << "no fault was injected";
    ASSERT_LT(failing, 1u * kPhotos) << "nothing is left that can be read";
    Start();
    EXPECT_EQ(CountOn(stick), kPhotos) << m_service->Log();
    Visitor visitor(*m_service);
    visitor.Query(visitor.StorageAt(stick));
    EXPECT_NE(visitor.Fetch(0, 100), "");
}

// What is known of a stick stays known when its folders cannot be read for now.
TEST_F(StickFaults, FoldersThatCannotBeReadCostNoItems) {
    if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
    const fs::path stick = m_sticks.PathOf("STICK");
    RunCommand("truncate -s 16M '" + Image() + "' && mkfs.ext4 -q -m 0 '" + Image() + "'");
    fs::create_directories(stick);
    {
        const OwnMount mount(MountImage(), stick);
        AddPhotos("SOURCE", kPhotos);
        RunCommand("cp -r '" + (m_sticks.Root() / "SOURCE").string() + "' '" + stick.string() +
                   "'");
        m_sticks.PullOut("SOURCE");
        Start();
        ASSERT_EQ(CountOn(stick), kPhotos);
        ASSERT_EQ(m_service->Stop(), 0);
    }
    const OwnMount mount(MountImage(), stick);
    RunCommand("truncate -s 64K '" + Image() + "'");
    std::error_code unreadable;
    size_t seen = 0;
    for (fs::recursive_directory_iterator at(stick, unreadable), end; !unreadable && at != end;
         at.increment(unreadable))
        ++seen;
    ASSERT_TRUE(unreadable) << "no fault was injected: " << seen << " entries";
    Start();
    Visitor visitor(*m_service);
    ASSERT_TRUE(visitor.IsConnected()) << m_service->Log();
    const std::string storage = visitor.StorageAt(stick);
    ASSERT_NE(storage, "");
    // The scan began with the connection: its end may have been told before anyone listened.
    ASSERT_TRUE(m_service->WaitForLog("ended with error")) << m_service->Log();
    EXPECT_NE(visitor.Query(storage, "photo", "false").find("\"count\":40"), std::string::npos)
        << m_service->Log();
}

TEST_F(StickFaults, OddNamesAndHostileFilesEndNoScan) {
    const fs::path hostile = m_scratch.Path() / "hostile";
    MakeSamples("--hostile", hostile);
    const auto stick = AddPhotos("STICK", kPhotos);
    fs::rename(hostile, stick / "HOSTILE");
    std::ofstream(stick / "new\nline.jpg") << "x";
    std::ofstream(stick / "not \xff\xfe UTF-8.jpg") << "x";
    std::ofstream(stick / (std::string(251, 'n') + ".jpg")) << "x";
    fs::create_directory_symlink(stick, stick / "loop");
    Start();
    Visitor visitor(*m_service);
    const std::string storage = visitor.StorageAt(stick);
    const int count = visitor.CountPhotos(storage);
    EXPECT_GE(count, kPhotos + 3) << m_service->Log();
    int seen = 0;
    for (int start = 0; start < count; start += 500) {
        Json::Value page;
        ASSERT_TRUE(Json::Reader().parse(visitor.Fetch(start, 500), page));
        seen += static_cast<int>(page["photos"].size());
    }
    EXPECT_EQ(seen, count);
}

}  // namespace
}  // namespace endurance
