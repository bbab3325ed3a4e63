// Sticks that cannot be read, and that take for ever.
#include <algorithm>

#include "Endurance/Faults/FaultTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

class HangingStick : public FaultTest {
protected:
    void SetUp() override {
        fs::create_directories(m_made);
        AddPhotos("GOOD");
        const fs::path photo = PhotoOn("GOOD");
        for (int i = 0; i < 200; ++i) {
            MakeHangingSong(m_made / (std::to_string(i) + ".wav"));
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

    const std::string m_image = m_scratch / "image";
    const fs::path m_stick = m_sticks.PathOf("STICK");
};

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
