// The main job: real files on a stick, found, counted and kept up to date.
#include "Service/ServiceTest.h"

namespace test {
namespace {

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
