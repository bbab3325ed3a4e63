// Sticks that come and go under clients that are at work. CM_CYCLES and CM_SECONDS in the
// environment make the two long tests longer than a test run has time for.
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "EndToEnd/Support/Crew.h"
#include "EndToEnd/Support/ServiceTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

size_t EntriesOf(pid_t process, const char* folder) {
    const fs::path path = "/proc/" + std::to_string(process) + "/" + folder;
    return static_cast<size_t>(std::distance(fs::directory_iterator(path), {}));
}

std::set<std::string> MountPaths(MediaClient& client) {
    std::set<std::string> paths;
    const Json::Value storages = Parse(client.Run("GetStorages"))["storages"];
    for (const auto& storage : storages)
        paths.insert(fs::path(storage["mountPath"].asString()).filename());
    return paths;
}

}  // namespace

// A small stick is scanned in no time: the report of it must not overtake the stick itself.
TEST_F(ServiceTest, AScanEndIsToldAfterItsStorage) {
    StartService();
    MediaClient media(Socket());
    PlugIn("small", {"--photos", "DIR", "1"});
    for (int cycle = 0; cycle < 20; ++cycle) {
        const auto connected = media.Raw().Wait("USB_CONNECTED");
        ASSERT_TRUE(connected) << cycle;
        const auto synced = media.Raw().Wait("SYNC_COMPLETED", std::chrono::seconds(20));
        ASSERT_TRUE(synced) << cycle;
        EXPECT_EQ(synced->payload, Parse(connected->payload)["storage"]["id"].asString());
        PullOut("small");
        ASSERT_TRUE(media.Raw().Wait("USB_DISCONNECTED")) << cycle;
        fs::rename(Folder() + "/pulled-small", UsbRoot() + "/small");
    }
}

TEST_F(ServiceTest, SticksComeAndGoAtAnyMomentUnderThreeClients) {
    StartService();
    PlugIn("a", {"--photos", "DIR", "40"});
    PlugIn("b", {"--photos", "DIR", "40"});
    MediaClient watcher(Socket());
    watcher.Query(watcher.Storage("a")["id"].asString(), "photo");
    watcher.Query(watcher.Storage("b")["id"].asString(), "photo");
    const size_t threadsBefore = EntriesOf(Service().Pid(), "task");
    const size_t filesBefore = EntriesOf(Service().Pid(), "fd");
    std::mt19937 random(7);
    const int cycles = FromEnvironment("CM_CYCLES", 40);
    size_t threads = 0, files = 0;
    {
        Crew crew;
        for (unsigned seed = 1; seed <= 3; ++seed)
            crew.Add([this, seed](auto& stop) { LiveRandomly(Socket(), seed, stop); });
        for (int cycle = 0; cycle < cycles; ++cycle) {
            const std::string name = random() % 2 ? "a" : "b";
            PullOut(name);
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
            fs::rename(Folder() + "/pulled-" + name, UsbRoot() + "/" + name);
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
        }
        PullOut("b");
    }
    std::set<std::string> present;
    EXPECT_TRUE(Until([&] {
        return (present = MountPaths(watcher)) == std::set<std::string>{"a"};
    })) << "the last state is wrong: "
        << ::testing::PrintToString(present);
    const std::string id = watcher.Storage("a")["id"].asString();
    EXPECT_EQ(watcher.Query(id, "photo"), 41);
    // Nothing of the clients is left. Some threads and connections to the database are made when
    // they are first needed, one for each core.
    EXPECT_TRUE(Until([&] {
        threads = EntriesOf(Service().Pid(), "task");
        files = EntriesOf(Service().Pid(), "fd");
        return threads <= threadsBefore + 4 && files <= filesBefore + 12;
    })) << threadsBefore
        << " threads became " << threads << ", " << filesBefore << " open files " << files;
}

TEST_F(ServiceTest, FourClientsAskWhileAFifthRegistersAndUnregisters) {
    PlugIn("stick", {"--photos", "DIR", "60"});
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

}  // namespace test
