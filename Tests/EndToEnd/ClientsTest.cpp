// Many clients, and clients that end badly.
#include <signal.h>

#include <filesystem>
#include <set>
#include <vector>

#include "Service/Crew.h"
#include "Service/RawClient.h"
#include "Service/ServiceTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

// CM_SECONDS in the environment makes it longer than a test run has time for.
TEST_F(ServiceTest, FourClientsAskWhileAFifthRegistersAndUnregisters) {
    m_sticks.Make("stick", "--photos", 60);
    fs::create_directory(UsbRoot() + "/stick/more");
    const std::string extra = UsbRoot() + "/stick/.extra.jpg";  // the scanner skips it
    fs::copy_file(UsbRoot() + "/stick/IMG_0001.jpg", extra);
    StartService();
    MediaClient fifth(Socket());
    const std::string id = fifth.Storage("stick")["id"].asString();
    ASSERT_EQ(fifth.Query(id, "photo"), 61);
    Crew crew;
    for (int number = 0; number < 4; ++number)
        crew.Add([this, id](auto& stop) {
            MediaClient client(Socket());
            while (!stop) {
                const int count = client.Query(id, "photo");
                EXPECT_TRUE(count == 61 || count == 62) << count;
                const Json::Value photos = client.Fetch(0, 100)["photos"];
                EXPECT_TRUE(photos.size() == 61 || photos.size() == 62) << photos.size();
                std::set<std::string> names;
                for (const auto& photo : photos) names.insert(photo["fullPathName"].asString());
                EXPECT_EQ(names.size(), photos.size()) << "a page repeats an item";
            }
        });
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(FromEnvironment("CM_SECONDS", 5));
    while (std::chrono::steady_clock::now() < end) {
        fifth.Run("RegisterContents", id, "{\"fullpaths\":[\"" + extra + "\"]}");
        const auto registered = fifth.Raw().Wait("CONTETNS_REGISTER_COMPLETED");
        ASSERT_TRUE(registered);
        const Json::Value item = Parse(registered->payload)["succeeded"][0];
        ASSERT_EQ(item["path"], extra) << registered->payload;
        fifth.Run("UnregisterContents", id, "{\"ids\":[\"" + item["id"].asString() + "\"]}");
        const auto removed = fifth.Raw().Wait("CONTENTS_UNREGISTER_COMPLETED");
        ASSERT_TRUE(removed);
        ASSERT_EQ(Parse(removed->payload)["result"].asInt(), 1) << removed->payload;
    }
}

// Gone without a word: in the middle of a command, of a scan wait, of a message.
TEST_F(ServiceTest, ClientsThatAreKilledLeaveTheOthersAlone) {
    m_sticks.Make("stick", "--photos", 300);
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
