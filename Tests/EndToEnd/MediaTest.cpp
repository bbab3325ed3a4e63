// The main job: real files on a stick, found, counted and kept up to date.
#include <filesystem>

#include "Service/ServiceTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

std::string ClientRoot(const std::string& usbRoot) {
    return usbRoot.substr(0, usbRoot.find("/opt/storage/usb")) + "$USB_DIR";
}

TEST_F(ServiceTest, AStickThatComesAndGoesIsToldAndKeepsItsIds) {
    StartService();
    MediaClient media(Socket());
    m_sticks.Make("late", "--photos", 20);
    const auto connected = media.Raw().Wait("USB_CONNECTED");
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->kind, 0);
    const Json::Value told = Parse(connected->payload)["storage"];
    EXPECT_EQ(told["mountPath"], ClientRoot(UsbRoot()) + "/late");
    const Json::Value storage = media.Storage("late");
    ASSERT_EQ(media.Query(storage["id"].asString(), "photo"), 21);
    const Json::Value before = media.FetchAll("photos", 1000);
    m_sticks.PullOut("late");
    ASSERT_TRUE(media.Raw().Wait("USB_DISCONNECTED"));
    EXPECT_EQ(media.Run("GetStorages"), "{\"storages\":[]}\n");
    EXPECT_EQ(media.Query(storage["id"].asString(), "photo", "", "false"), 0);
    m_sticks.PlugIn("late");
    ASSERT_TRUE(media.Raw().Wait("USB_CONNECTED"));
    EXPECT_EQ(media.Storage("late")["id"], storage["id"]);
    ASSERT_EQ(media.Query(storage["id"].asString(), "photo"), 21);
    EXPECT_EQ(media.FetchAll("photos", 1000), before) << "a returning stick changed";
}

// A small stick is scanned in no time: the report of it must not overtake the stick itself.
TEST_F(ServiceTest, AScanEndIsToldAfterItsStorage) {
    StartService();
    MediaClient media(Socket());
    m_sticks.Make("small", "--photos", 1);
    for (int cycle = 0; cycle < 20; ++cycle) {
        const auto connected = media.Raw().Wait("USB_CONNECTED");
        ASSERT_TRUE(connected) << cycle;
        const auto synced = media.Raw().Wait("SYNC_COMPLETED", std::chrono::seconds(20));
        ASSERT_TRUE(synced) << cycle;
        EXPECT_EQ(synced->payload, Parse(connected->payload)["storage"]["id"].asString());
        m_sticks.PullOut("small");
        ASSERT_TRUE(media.Raw().Wait("USB_DISCONNECTED")) << cycle;
        m_sticks.PlugIn("small");
    }
}

TEST_F(ServiceTest, RegisteredFilesAreListedAndRemovedOnesAreNot) {
    m_sticks.Make("stick", "--photos", 10);
    StartService();
    MediaClient media(Socket());
    const std::string id = media.Storage("stick")["id"].asString();
    ASSERT_EQ(media.Query(id, "photo"), 11);
    const std::string item = media.Fetch(0, 1)["photos"][0]["id"].asString();
    const std::string path = media.Fetch(0, 1)["photos"][0]["fullPathName"].asString();
    EXPECT_NE(media.Run("UnregisterContents", id, "{\"ids\":[\"" + item + "\",\"none\"]}"), "0");
    const auto removed = media.Raw().Wait("CONTENTS_UNREGISTER_COMPLETED");
    ASSERT_TRUE(removed);
    const Json::Value removal = Parse(removed->payload);
    EXPECT_EQ(removal["result"].asInt(), 0);
    EXPECT_EQ(removal["succeeded"][0], item);
    EXPECT_EQ(removal["failed"][0], "none");
    EXPECT_EQ(media.Query(id, "photo"), 10);
    const std::string paths =
        "{\"fullpaths\":[\"" + path + "\",\"$USB_DIR/stick\",\"/etc/hostname\",\"/missing\"]}";
    EXPECT_NE(media.Run("RegisterContents", id, paths), "0");
    const auto registered = media.Raw().Wait("CONTETNS_REGISTER_COMPLETED");
    ASSERT_TRUE(registered);
    const Json::Value outcome = Parse(registered->payload);
    EXPECT_EQ(outcome["result"].asInt(), 0);
    ASSERT_EQ(outcome["succeeded"].size(), 1u);
    EXPECT_EQ(outcome["failed"].size(), 3u);
    EXPECT_EQ(media.Query(id, "photo"), 11);
}

TEST_F(ServiceTest, TheDatabaseSurvivesAKillInTheMiddleOfAScan) {
    m_sticks.Make("stick", "--photos", 600);
    StartService();
    MediaClient(Socket()).Storage("stick");
    m_service->Kill();
    StartService();
    MediaClient media(Socket());
    EXPECT_EQ(media.Query(media.Storage("stick")["id"].asString(), "photo"), 601);
}

}  // namespace
}  // namespace test
