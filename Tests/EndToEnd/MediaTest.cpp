// The main job: real files on a stick, found, counted and kept up to date.
#include "Service/ServiceTest.h"

namespace test {
namespace {

TEST_F(ServiceTest, AStickThatComesAndGoesIsToldAndKeepsItsIds) {
    StartService();
    MediaClient media(Socket());
    m_sticks.Make("late", "--photos", 20);
    const auto connected = media.Raw().Wait("USB_CONNECTED");
    ASSERT_TRUE(connected);
    EXPECT_EQ(connected->kind, 0);
    const Json::Value told = Parse(connected->payload)["storage"];
    EXPECT_EQ(told["mountPath"], m_sticks.ClientRoot() + "/late");
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

TEST_F(ServiceTest, StoppingWhileClientsAreBusyEndsWell) {
    m_sticks.Make("stick", "--photos", 300);
    StartService();
    std::vector<std::unique_ptr<MediaClient>> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(std::make_unique<MediaClient>(Socket()));
        clients.back()->Raw().Send(clients.back()->Handle(), "GetStorages");
    }
    StopService();
    for (const auto& client : clients) EXPECT_TRUE(client->Raw().WaitUntilDisconnected());
}

}  // namespace
}  // namespace test
