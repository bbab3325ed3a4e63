// The worker and its queue.
#include "PluginTest.h"

namespace test {
namespace {

class WorkerTest : public PluginTest {
protected:
    WorkerTest() { AddStick(); }
};

TEST_F(WorkerTest, JobsRunOldestFirstAndOneThatThrowsEndsAlone) {
    ConnectedRig rig;
    HoldWorker(rig.task);
    int id = 0;
    EXPECT_TRUE(rig.task.RegisterContents("S1", {"/a"}, id));
    EXPECT_TRUE(rig.task.UnregisterContents("S1", {"1"}, id));
    EXPECT_TRUE(rig.task.RegisterContents("S1", {"/a"}, id));
    platform.OnCall("media_info_insert_to_db", [this] {
        platform.OnCall("media_info_insert_to_db", nullptr);
        throw std::runtime_error("database on fire");
    });
    jobGate.Open();
    platform.WaitForEvent("CONTETNS_REGISTER_COMPLETED");
    Strings names;
    for (const Event& event : platform.Events()) names.push_back(event.name);
    EXPECT_EQ(names, (Strings{"CONTENTS_UNREGISTER_COMPLETED", "CONTENTS_UNREGISTER_COMPLETED",
                              "CONTETNS_REGISTER_COMPLETED"}))
        << "the first was the one that held up the worker, the second threw";
    EXPECT_EQ(platform.CountLog("Fatal Exception!!!: < database on fire >\n"), 1);
}

// Whatever a command makes the service hold is counted, refused when it is too much, and given
// back.
TEST_F(WorkerTest, WhatAClientMayNotHoldIsRefusedAndHarmsNothing) {
    AddPhotos(3);
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    Command(engine, "Query", "S1", "photo");
    Await("QUERY_COMPLETED");
    ASSERT_TRUE(Until([&] { return platform.CountLog("Thread operating \n") == 2; }));
    const size_t before = platform.HeldBytes();
    EXPECT_GT(before, 0u) << "a query is kept";
    const std::string large(100 * 1000, 'x');
    const std::string values = "[" + std::string(30 * 1000, '[');
    const struct {
        const char* command;
        std::string arg1, arg2, arg3;
        bool handled = true;
    } cases[] = {
        {"Query", "S1", "folder", large},
        {"Query", large, "photo", ""},
        {"Fetch", "0", "1000", ""},
        {"RegisterContents", "", "{\"fullpaths\":[\"" + large + "\"]}", ""},
        {"UnregisterContents", "", "{\"ids\":[\"" + large + "\"]}", ""},
        {"RegisterContents", "", values, ""},
        {"SubscribeEvent", values, "", "", false},
    };
    platform.LetHold(before + 100 * 1000);
    for (const auto& c : cases) {
        const Reply reply = Command(engine, c.command, c.arg1, c.arg2, c.arg3);
        EXPECT_EQ(reply.handled, c.handled) << c.command;
        EXPECT_EQ(reply.value, c.handled ? "0" : "untouched") << c.command;
        EXPECT_EQ(platform.HeldBytes(), before) << c.command;
    }
    platform.LetHold(SIZE_MAX);
    EXPECT_EQ(Command(engine, "Fetch", "0", "1000").value, "3") << "the refused ones took no id";
    EXPECT_EQ(Await("FETCH_COMPLETED")["photos"].size(), 3u) << "and no query was lost";
    EXPECT_TRUE(Until([&] { return platform.HeldBytes() == before; }));
    for (int i = 0; i < 100; ++i) Command(engine, "Query", "S1", "photo");
    for (int i = 0; i < 100; ++i) Await("QUERY_COMPLETED");
    EXPECT_TRUE(Until([&] { return platform.HeldBytes() < before + 100 * 20; }))
        << "equal queries share one record";
    EXPECT_EQ(Command(engine, "GetCount", "2").value, "3");
    Command(engine, "Disconnect");
    EXPECT_EQ(platform.HeldBytes(), 0u);
}

}  // namespace
}  // namespace test
