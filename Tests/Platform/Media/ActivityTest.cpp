// Who runs when: whole scans, short ones, and the pieces of work that they hand out.
#include <gtest/gtest.h>

#include <future>

#include "MediaContent/Activity.h"
#include "MediaContent/WorkerPool.h"
#include "Support/Basics.h"

namespace media_test {
namespace {

using namespace platform;

TEST(ActivityTest, WhatIsStartedForAStorageThatHasGoneIsCancelled) {
    ActivityQueue queue;
    const auto submitted = std::make_shared<Activity>(), entered = std::make_shared<Activity>();
    submitted->mount = entered->mount = std::make_shared<Mount>();
    submitted->mount->gone = true;
    std::promise<bool> cancelled;
    queue.Submit(submitted, [&] { cancelled.set_value(submitted->cancel); });
    EXPECT_TRUE(cancelled.get_future().get());
    EXPECT_TRUE(EnteredActivity(queue, entered).Cancelled());
}

// Work of a lane that is held up until it is let go.
class Stuck {
public:
    void Run() {
        m_begun = true;
        m_free.get_future().wait();
    }
    bool HasBegun() {
        return test::Until([this] { return m_begun.load(); });
    }
    void LetGo() { m_free.set_value(); }

private:
    std::atomic<bool> m_begun{false};
    std::promise<void> m_free;
};

TEST(ActivityTest, ALaneThatHoldsAllThreadsHoldsUpNoOther) {
    Stuck bad[2], others[2];
    WorkerPool pool(2);
    const int badLane = 0, otherLane = 0;
    for (Stuck& stuck : bad) pool.Submit(&badLane, [&] { stuck.Run(); });
    EXPECT_TRUE(bad[0].HasBegun() && bad[1].HasBegun());
    for (Stuck& stuck : others) pool.Submit(&otherLane, [&] { stuck.Run(); });
    EXPECT_TRUE(others[0].HasBegun());
    pool.SetSlow(&badLane);
    EXPECT_TRUE(others[1].HasBegun()) << "what a slow lane holds is to be made up for";
    for (Stuck* stuck : {&bad[0], &bad[1], &others[0], &others[1]}) stuck->LetGo();
}

}  // namespace
}  // namespace media_test
