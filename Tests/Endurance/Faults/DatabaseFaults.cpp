// A disk that is full, a folder that cannot be written, a database that is damaged.
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <sstream>

#include "Endurance/Faults/FaultTest.h"
#include "Endurance/Faults/Sound.h"

namespace endurance {
namespace {

namespace fs = std::filesystem;

constexpr int kPhotos = 40;

class DatabaseFaults : public FaultTest {
protected:
    ServiceOptions DatabaseIn(const fs::path& folder) const {
        ServiceOptions options = Options();
        options.database = folder / "media.db";
        return options;
    }
};

std::string ReadAll(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

void WriteAll(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
}

// Fills what is left of the file system; the file is the caller's to remove.
void Fill(const fs::path& file) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const std::string block(512, 'x');
    while (write(descriptor, block.data(), block.size()) > 0) {
    }
    close(descriptor);
}

TEST_F(DatabaseFaults, DiskFullFromTheStartRefusesConnectAndServesWhenThereIsRoom) {
    if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
    const fs::path disk = m_scratch.Path() / "disk";
    const OwnMount mount("mount -t tmpfs -o size=4M none", disk);
    Fill(disk / "filler");
    const auto stick = AddPhotos("STICK", kPhotos);
    Start(DatabaseIn(disk));
    Visitor visitor(*m_service);
    EXPECT_FALSE(visitor.IsConnected());
    EXPECT_TRUE(m_service->WaitForLog("disk is full")) << m_service->Log();
    fs::remove(disk / "filler");
    ASSERT_TRUE(visitor.Connect());
    EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(stick)), kPhotos);
}

TEST_F(DatabaseFaults, DiskFullDuringAScanLosesNothing) {
    if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
    const fs::path disk = m_scratch.Path() / "disk";
    const OwnMount mount("mount -t tmpfs -o size=4M none", disk);
    const auto first = AddPhotos("FIRST", kPhotos);
    Start(DatabaseIn(disk));
    Visitor visitor(*m_service);
    ASSERT_TRUE(visitor.IsConnected());
    const std::string storage = visitor.StorageAt(first);
    ASSERT_EQ(visitor.CountPhotos(storage), kPhotos);

    // Enough for the new storage's record, and for a part of its items.
    Fill(disk / "filler");
    fs::resize_file(disk / "filler", fs::file_size(disk / "filler") - 200 * 1024);
    visitor.Client().TakeAll();
    const auto second = AddPhotos("SECOND", 1500);
    const auto end = visitor.Client().Wait(
        [](const test::Event& event) { return event.name.compare(0, 5, "SYNC_") == 0; });
    ASSERT_TRUE(end) << "the scan's end is not told";
    EXPECT_EQ(end->name, "SYNC_FAILED");
    EXPECT_TRUE(m_service->WaitForLog("disk is full")) << m_service->Log();
    EXPECT_EQ(visitor.CountPhotos(storage), kPhotos);
    EXPECT_NE(visitor.Fetch(0, 10), "");

    fs::remove(disk / "filler");
    RunCommand("mount -o remount,size=64M '" + disk.string() + "'");
    m_sticks.PullOut("SECOND");
    ASSERT_TRUE(visitor.Client().Wait("USB_DISCONNECTED"));
    m_sticks.PlugIn("SECOND");
    ASSERT_TRUE(WaitUntil([&] { return !visitor.StorageAt(second).empty(); }));
    EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(second)), 1500);
    EXPECT_EQ(visitor.CountPhotos(storage), kPhotos);
}

TEST_F(DatabaseFaults, ReadOnlyFolderRefusesConnectUntilItCanBeWritten) {
    if (!MayMount()) GTEST_SKIP() << "needs the right to mount";
    const fs::path disk = m_scratch.Path() / "disk";
    const OwnMount mount("mount -t tmpfs -o size=16M none", disk);
    const auto stick = AddPhotos("STICK", kPhotos);
    Start(DatabaseIn(disk));
    ASSERT_EQ(CountOn(stick), kPhotos);
    ASSERT_EQ(m_service->Stop(), 0);
    const std::string before = ReadAll(disk / "media.db");

    RunCommand("mount -o remount,ro '" + disk.string() + "'");
    Start(DatabaseIn(disk));
    Visitor visitor(*m_service);
    EXPECT_FALSE(visitor.IsConnected());
    EXPECT_TRUE(m_service->WaitForLog("unable to open database file")) << m_service->Log();
    EXPECT_EQ(ReadAll(disk / "media.db"), before);
    RunCommand("mount -o remount,rw '" + disk.string() + "'");
    ASSERT_TRUE(visitor.Connect());
    EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(stick)), kPhotos);
    EXPECT_FALSE(fs::exists(disk / "media.db.aside"));
}

// Damage may show at the start or only when that page is read: a command may fail then, and the
// next ones find the database made anew.
TEST_F(DatabaseFaults, DamageOfAnyPageIsFoundAndMended) {
    const auto stick = AddPhotos("STICK", kPhotos);
    Start();
    ASSERT_EQ(CountOn(stick), kPhotos);
    ASSERT_EQ(m_service->Stop(), 0);
    const fs::path file = m_scratch.Path() / "media.db";
    const std::string sound = ReadAll(file);
    constexpr size_t kPage = 4096;
    ASSERT_GT(sound.size(), 8 * kPage);
    std::minstd_rand noise(1);
    for (size_t page = 0; page < sound.size() / kPage; ++page) {
        SCOPED_TRACE("page " + std::to_string(page));
        std::string damaged = sound;
        for (size_t i = 0; i < kPage; ++i) damaged[page * kPage + i] = static_cast<char>(noise());
        for (const char* part : {"", "-wal", "-shm"}) {
            fs::remove(file.string() + part);
            fs::remove(file.string() + ".aside" + part);
        }
        WriteAll(file, damaged);
        Start();
        int counted = -3;
        for (int attempt = 0; attempt < 4 && counted != kPhotos; ++attempt)
            counted = CountOn(stick);
        EXPECT_EQ(counted, kPhotos) << m_service->Log();
        ASSERT_EQ(m_service->Stop(), 0) << m_service->Log();
    }
    m_service.reset();
}

// One flipped byte may stay unseen: no answer is promised then, but an answer and a life is.
TEST_F(DatabaseFaults, FlippedBytesCostNoCrash) {
    const auto stick = AddPhotos("STICK", kPhotos);
    Start();
    ASSERT_EQ(CountOn(stick), kPhotos);
    ASSERT_EQ(m_service->Stop(), 0);
    const fs::path file = m_scratch.Path() / "media.db";
    const std::string sound = ReadAll(file);
    std::minstd_rand random(2);
    for (int round = 0; round < 12; ++round) {
        std::string damaged = sound;
        for (int i = 0; i < 20; ++i)
            damaged[random() % damaged.size()] ^= static_cast<char>(1 + random() % 255);
        for (const char* part : {"-wal", "-shm"}) fs::remove(file.string() + part);
        WriteAll(file, damaged);
        Start();
        Visitor visitor(*m_service);
        if (visitor.IsConnected()) {
            const std::string storage = visitor.StorageAt(stick);
            if (!storage.empty()) {
                EXPECT_NE(visitor.Query(storage), "") << m_service->Log();
            }
            visitor.Fetch(0, 10);
        }
        ASSERT_TRUE(m_service->IsRunning()) << m_service->Log();
        ASSERT_EQ(m_service->Stop(), 0) << m_service->Log();
    }
    m_service.reset();
}

}  // namespace
}  // namespace endurance
