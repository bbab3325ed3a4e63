// Many clients, and clients that end badly.
#include <signal.h>

#include <thread>
#include <vector>

#include "EndToEnd/Support/RawClient.h"
#include "EndToEnd/Support/ServiceTest.h"

namespace test {
namespace {

TEST_F(ServiceTest, FourConnectionsOpenAndCloseTwoHundredEnginesWhileCommandsRun) {
    PlugIn("stick", {"--photos", "DIR", "50"});
    StartService();
    MediaClient media(Socket());
    const std::string storage = media.Storage("stick")["id"].asString();
    std::vector<std::thread> clients;
    for (int c = 0; c < 4; ++c) {
        clients.emplace_back([&] {
            const auto client = Client();
            for (int i = 0; i < 50; ++i) {
                const int handle = client->Open();
                ASSERT_GT(handle, 0);
                if (i % 2 == 0) {
                    EXPECT_EQ(client->Execute(handle, "Connect").value, "1");
                    client->Send(handle, "GetStorages");
                    client->Execute(handle, "Query", storage, "photo", "", "true");
                }
                EXPECT_EQ(client->Execute(handle, "StartSync").value, "0");
                EXPECT_EQ(client->Close(handle), "");
            }
        });
    }
    for (int i = 0; i < 20; ++i) EXPECT_EQ(media.Query(storage, "photo"), 51);
    for (auto& client : clients) client.join();
    EXPECT_EQ(media.Query(storage, "photo"), 51);
}

// Gone without a word: in the middle of a command, of a scan wait, of a message.
TEST_F(ServiceTest, ClientsThatAreKilledLeaveTheOthersAlone) {
    PlugIn("stick", {"--photos", "DIR", "300"});
    StartService();
    MediaClient media(Socket());
    const std::string storage = media.Storage("stick")["id"].asString();
    const char* const lastWords[] = {"Connect", "GetStorages", "Disconnect", "Query"};
    for (int i = 0; i < 20; ++i) {
        RawClient victim(Socket());
        ASSERT_TRUE(victim.Authenticate());
        victim.Call("Open", g_variant_new("(s)", "victim"));
        const int handle = victim.ReadHandle();
        ASSERT_GT(handle, 0);
        for (const char* command : {"Connect", lastWords[i % 4]})
            victim.Call("Execute", g_variant_new("(isssss)", handle, command, storage.c_str(),
                                                 "photo", "", "true"));
    }
    {
        RawClient half(Socket());
        ASSERT_TRUE(half.Authenticate());
        half.Write(std::string("l\1\0\1\xff", 5));
    }
    {
        Program monitor({CONTENTSCTL, "--address", Address(), "monitor"}, Folder() + "/monitor");
        monitor.Signal(SIGKILL);
        EXPECT_EQ(monitor.Wait(), 128 + SIGKILL);
    }
    EXPECT_EQ(media.Query(storage, "photo"), 301);
}

TEST_F(ServiceTest, StoppingWhileClientsAreBusyEndsWell) {
    PlugIn("stick", {"--photos", "DIR", "300"});
    StartService();
    std::vector<std::unique_ptr<MediaClient>> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(std::make_unique<MediaClient>(Socket()));
        clients.back()->Raw().Send(clients.back()->Handle(), "GetStorages");
    }
    StopService();
    for (const auto& client : clients) EXPECT_TRUE(client->Raw().WaitUntilDisconnected());
}

TEST_F(ServiceTest, AClientIsServedAgainAfterARestart) {
    StartService();
    Client()->Open();
    Service().Signal(SIGKILL);
    EXPECT_EQ(Service().Wait(), 128 + SIGKILL);
    StartService();
    MediaClient media(Socket());
    EXPECT_EQ(media.Run("GetStorages"), "{\"storages\":[]}\n");
}

}  // namespace
}  // namespace test
