// A disk that is full.
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "Endurance/Faults/FaultTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

// Fills what is left of the file system; the file is the caller's to remove.
void Fill(const fs::path& file) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const std::string block(512, 'x');
    while (write(descriptor, block.data(), block.size()) > 0) {
    }
    close(descriptor);
}

// The service keeps its database on a small disk of its own.
class DiskFaults : public FaultTest {
protected:
    void SetUp() override {
        if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
        m_mount = std::make_unique<OwnMount>("mount -t tmpfs -o size=4M none", m_disk);
        m_options = Options();
        m_options.database = m_disk / "media.db";
    }
    ~DiskFaults() override {
        if (m_service) StopService();  // before its disk goes
    }
    void Remount(const std::string& how) const {
        RunCommand("mount -o remount," + how + " '" + m_disk.string() + "'");
    }

    // The name of the event that tells of it.
    static std::string EndOfScan(MediaClient& visitor) {
        const auto end = visitor.Raw().Wait(
            [](const Event& event) { return event.name.compare(0, 5, "SYNC_") == 0; });
        return end ? end->name : "none";
    }
    static std::set<std::string> IdsOn(MediaClient& visitor, const std::string& name) {
        visitor.Query(visitor.Storage(name)["id"].asString());
        std::set<std::string> ids;
        for (const auto& photo : visitor.FetchAll("photos", 1000))
            ids.insert(photo["id"].asString());
        EXPECT_EQ(ids.size(), 1500u) << name;
        return ids;
    }
    void Replug(MediaClient& visitor, const std::string& name) {
        m_sticks.PullOut(name);
        EXPECT_TRUE(visitor.Raw().Wait("USB_DISCONNECTED"));
        m_sticks.PlugIn(name);
        EXPECT_TRUE(visitor.Raw().Wait("USB_CONNECTED"));
    }

    const fs::path m_disk = m_scratch / "disk";
    std::unique_ptr<OwnMount> m_mount;
    ServiceOptions m_options;
};

TEST_F(DiskFaults, DiskFullFromTheStartRefusesConnectAndServesWhenThereIsRoom) {
    Fill(m_disk / "filler");
    const auto stick = AddPhotos("STICK");
    StartService(m_options);
    MediaClient visitor(Socket());
    EXPECT_FALSE(visitor.IsConnected());
    EXPECT_TRUE(m_service->WaitForLog("disk is full")) << m_service->Log();
    fs::remove(m_disk / "filler");
    ASSERT_TRUE(visitor.Connect());
    EXPECT_EQ(visitor.Query(visitor.StorageAt(stick)), kPhotos);
}

TEST_F(DiskFaults, DiskFullDuringAScanLosesNothing) {
    const auto first = AddPhotos("FIRST");
    StartService(m_options);
    MediaClient visitor(Socket());
    ASSERT_TRUE(visitor.IsConnected());
    const std::string storage = visitor.StorageAt(first);
    ASSERT_EQ(visitor.Query(storage), kPhotos);

    // Enough for the new storage's record, and for a part of its items.
    Fill(m_disk / "filler");
    fs::resize_file(m_disk / "filler", fs::file_size(m_disk / "filler") - 200 * 1024);
    visitor.Raw().TakeAll();
    AddPhotos("SECOND", 1500);
    EXPECT_EQ(EndOfScan(visitor), "SYNC_FAILED");
    EXPECT_TRUE(m_service->WaitForLog("no more new files are listed")) << m_service->Log();
    EXPECT_EQ(visitor.Query(storage), kPhotos);
    EXPECT_NE(visitor.FetchEvent(0, 10), "");

    fs::remove(m_disk / "filler");
    Remount("size=64M");
    Replug(visitor, "SECOND");
    EXPECT_EQ(visitor.Query(visitor.Storage("SECOND")["id"].asString()), 1500);
    EXPECT_EQ(visitor.Query(storage), kPhotos);
}

// Five sticks are more than the disk holds. Each that comes is listed whole, for the price of the
// one that went first; one that wants more than its share takes no more than that.
TEST_F(DiskFaults, StorageThatWentFirstMakesRoomAndNoneTakesAll) {
    const fs::path greedy = m_scratch / "away/GREEDY";
    fs::create_directories(greedy);
    for (int i = 0; i < 2000; ++i)
        std::ofstream(greedy / (std::to_string(i) + std::string(240, 'n') + ".jpg")).close();
    Remount("size=2250k");
    StartService(m_options);
    MediaClient visitor(Socket());
    m_sticks.PlugIn("GREEDY");
    EXPECT_EQ(EndOfScan(visitor), "SYNC_FAILED");
    const std::string id = visitor.Storage("GREEDY")["id"].asString();
    EXPECT_GT(visitor.Query(id, "photo", "", "false"), 0);
    EXPECT_EQ(Told("has its share"), 1u) << m_service->Log();

    std::set<std::string> first, last;
    for (int i = 0; i < 5; ++i) {
        const std::string name = "STICK" + std::to_string(i);
        AddPhotos(name, 1500);
        EXPECT_EQ(EndOfScan(visitor), "SYNC_COMPLETED") << name << ": " << m_service->Log();
        if (i == 0) first = IdsOn(visitor, name);
        if (i == 4) last = IdsOn(visitor, name);
        m_sticks.PullOut(name);
        ASSERT_TRUE(visitor.Raw().Wait("USB_DISCONNECTED"));
    }
    m_sticks.PlugIn("STICK4");
    EXPECT_EQ(EndOfScan(visitor), "SYNC_COMPLETED");
    EXPECT_TRUE(IdsOn(visitor, "STICK4") == last) << "forgotten although others went before";
    m_sticks.PlugIn("STICK0");
    EXPECT_EQ(EndOfScan(visitor), "SYNC_COMPLETED");
    EXPECT_TRUE(IdsOn(visitor, "STICK0") != first) << "nothing had to make room";
}

}  // namespace
}  // namespace test
