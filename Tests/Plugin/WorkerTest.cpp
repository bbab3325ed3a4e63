// Threads, semaphores, the job queue and the worker.
#include <atomic>

#include "CSafeQ.h"
#include "PluginTest.h"
#include "ThreadCM.h"

namespace test {
namespace {

class WorkerTest : public PluginTest {
protected:
    // Queues a job from outside and wakes the worker.
    static void Queue(CPlivTaskContentsMgr& task, int type, Strings items = {}) {
        dorn::CCMTaskJob job;
        job.SetCommandType(type);
        dorn::InsertDeleteInfo info;
        info.items = std::move(items);
        job.SetInsertDeleteInfo(info);
        JobsOf(task).Push(job);
    }
    static void Wake(CPlivTaskContentsMgr& task) { JobSemaphoreOf(task).Post(); }
    // The rig's worker has come to its semaphore for the nth time; the engine's own one is idle
    // after its first.
    void AwaitTurn(int n) { EXPECT_TRUE(platform.WaitForLog("Thread operating \n", n + 1)); }
};

struct Body : ThreadCM {
    explicit Body(Gate& g) : gate(g) {}
    void t_Main() override {
        gate.Wait();
        ended = true;
    }
    Gate& gate;
    std::atomic<bool> ended{false};
};

TEST_F(WorkerTest, AThreadIsRunningWhenCreateReturnsAndOverWhenDestroyReturns) {
    for (const bool joins : {false, true}) {
        Gate gate;
        Body body(gate);
        EXPECT_FALSE(body.Create(nullptr));
        EXPECT_EQ(body.ThreadID(), 0xffffffffu);
        ASSERT_TRUE(body.Create("body"));
        EXPECT_NE(body.ThreadID(), 0xffffffffu);
        EXPECT_TRUE(gate.WaitForArrival());
        EXPECT_FALSE(body.ended);
        gate.Open();
        if (joins) {
            EXPECT_EQ(body.ThreadJoin(), nullptr);
            EXPECT_TRUE(body.ended);
        }
        body.Destroy();
        EXPECT_TRUE(body.ended);
    }
    EXPECT_EQ(ThreadCM::Process(nullptr), nullptr);
}

TEST_F(WorkerTest, EachPostWakesOneWait) {
    SemphoreCM semaphore, arrived;
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            for (int n = 0; n < 500; ++n) semaphore.Wait();
            ++passed;
            arrived.Post();
        });
    for (int i = 0; i < 1999; ++i) semaphore.Post();
    for (int i = 0; i < 3; ++i) arrived.Wait();
    EXPECT_EQ(passed, 3);
    semaphore.Post();
    arrived.Wait();
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(passed, 4);
}

TEST_F(WorkerTest, OneDrainRunsAllQueuedJobsOldestFirst) {
    Rig rig;
    AwaitTurn(1);
    Queue(rig.task, dorn::COMMAND_TYPE_UNREGISTER, {"1"});
    Queue(rig.task, dorn::COMMAND_TYPE_REGISTER, {"/a"});
    Queue(rig.task, dorn::COMMAND_TYPE_UNREGISTER, {"2"});
    Wake(rig.task);
    AwaitTurn(2);
    Strings names;
    for (const Event& event : platform.Events()) names.push_back(event.name);
    EXPECT_EQ(names, (Strings{"CONTENTS_UNREGISTER_COMPLETED", "CONTETNS_REGISTER_COMPLETED",
                              "CONTENTS_UNREGISTER_COMPLETED"}));
    Wake(rig.task);  // finds nothing
    AwaitTurn(3);
    EXPECT_EQ(platform.Events().size(), 3u);
    EXPECT_EQ(platform.CountLog("COMMAND_TYPE_REGISTER"), 1);
    EXPECT_TRUE(platform.HasLog(kTrace, "COMMAND_TYPE_UNREGISTER"));
}

TEST_F(WorkerTest, AJobOfUnknownTypeStaysIsLoggedOnEveryDrainAndHoldsUpNobody) {
    Rig rig;
    AwaitTurn(1);
    Queue(rig.task, 7);
    Queue(rig.task, -1);
    for (int drain = 1; drain <= 3; ++drain) {
        Queue(rig.task, dorn::COMMAND_TYPE_REGISTER, {"/a"});
        Wake(rig.task);
        AwaitTurn(drain + 1);
        EXPECT_EQ(platform.CountEvents("CONTETNS_REGISTER_COMPLETED"), drain);
        EXPECT_EQ(platform.CountLog("COMMAND_TYPE_DEFAULT"), 2 * drain);
    }
    EXPECT_TRUE(platform.HasLog(kTrace, "COMMAND_TYPE_DEFAULT"));
}

TEST_F(WorkerTest, AFatalExceptionOfAJobIsLoggedAndTheWorkerGoesOn) {
    Rig rig;
    AwaitTurn(1);
    platform.OnCall("media_info_delete_from_db",
                    [] { throw std::runtime_error("database on fire"); });
    Queue(rig.task, dorn::COMMAND_TYPE_UNREGISTER, {"1"});
    Wake(rig.task);
    AwaitTurn(2);
    EXPECT_TRUE(platform.HasLog(kProgress, "Fatal Exception!!!: < database on fire >\n"));
    EXPECT_TRUE(platform.Events().empty());
    Queue(rig.task, dorn::COMMAND_TYPE_REGISTER, {"/a"});
    Wake(rig.task);
    platform.WaitForEvent("CONTETNS_REGISTER_COMPLETED");
}

TEST_F(WorkerTest, NoProducerWaitsForARunningJob) {
    Rig rig;
    AddStick();
    ASSERT_TRUE(rig.task.Connect());
    HoldWorker(rig.task);
    int id = 0;
    EXPECT_TRUE(rig.task.Query("S1", dorn::MEDIA_TYPE_PHOTO, "", ""));
    EXPECT_TRUE(rig.task.Fetch(0, 1, id));
    EXPECT_TRUE(rig.task.RegisterContents("S1", {"/a"}, id));
    int count = 0;
    EXPECT_TRUE(rig.task.GetCount(2, count));
    EXPECT_TRUE(platform.Events().empty());
    jobGate.Open();
    platform.WaitForEvent("CONTETNS_REGISTER_COMPLETED");
    EXPECT_EQ(platform.Events().size(), 4u);
}

// Whatever a command makes the service hold is counted, refused when it is too much, and given
// back.
TEST_F(WorkerTest, WhatAClientMayNotHoldIsRefusedAndHarmsNothing) {
    AddStick();
    AddPhotos(3);
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    Command(engine, "Query", "S1", "photo");
    Await("QUERY_COMPLETED");
    ASSERT_TRUE(WaitUntil([&] { return platform.CountLog("Thread operating \n") == 2; }));
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
        platform.ForgetLog();
        const Reply reply = Command(engine, c.command, c.arg1, c.arg2, c.arg3);
        EXPECT_EQ(reply.handled, c.handled) << c.command;
        EXPECT_EQ(reply.value, c.handled ? "0" : "untouched") << c.command;
        EXPECT_EQ(platform.HeldBytes(), before) << c.command;
        EXPECT_NE(platform.Messages(kProgress)[1].find("refused: "), std::string::npos);
    }
    platform.LetHold(SIZE_MAX);
    EXPECT_EQ(Command(engine, "Fetch", "0", "1000").value, "3") << "the refused ones took no id";
    EXPECT_EQ(Await("FETCH_COMPLETED")["photos"].size(), 3u) << "and no query was lost";
    EXPECT_TRUE(WaitUntil([&] { return platform.HeldBytes() == before; }));
    for (int i = 0; i < 100; ++i) Command(engine, "Query", "S1", "photo");
    for (int i = 0; i < 100; ++i) Await("QUERY_COMPLETED");
    EXPECT_TRUE(WaitUntil([&] { return platform.HeldBytes() < before + 100 * 20; }))
        << "equal queries share one record";
    EXPECT_EQ(Command(engine, "GetCount", "2").value, "3");
    Command(engine, "Disconnect");
    EXPECT_EQ(platform.HeldBytes(), 0u);
}

}  // namespace
}  // namespace test
