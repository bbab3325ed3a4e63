// The base classes as a plugin meets them, without a transport.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Platform/Host/TestApp.h"

namespace test {
namespace {

using dorn::PlivType;

TEST(AppBase, NamesStandForHandles) {
    TestApp app;
    std::string value;
    EXPECT_EQ(app.Open("a", "another plugin", "", ""), -1);
    EXPECT_EQ(app.Open("a", "TestPlugin", "9.9", ""), -1) << "a version that is not ours";
    EXPECT_GT(app.Open("a", "TestPlugin", "1.5", "whatever"), 0);
    EXPECT_GT(app.Open("b", "", "", ""), 0);
    EXPECT_TRUE(app.Execute(value, "a", "echo", "x", "", "", ""));
    EXPECT_EQ(value, "x");
    EXPECT_FALSE(app.Execute(value, "c", "echo", "x", "", "", ""));
    EXPECT_TRUE(app.Close("a", PlivType::PLIV_TYPE_ENGINE));
    EXPECT_FALSE(app.Close("a", PlivType::PLIV_TYPE_ENGINE));
    EXPECT_EQ(app.live, 1);
    EXPECT_TRUE(app.Close("", PlivType::PLIV_TYPE_ALL));
    EXPECT_EQ(app.live, 0);
}

TEST(AppBase, RefusesAHandleThatIsInUseAndUnknownOnes) {
    TestApp app;
    std::string value = "untouched";
    EXPECT_TRUE(app.Open(7, "a", "", ""));
    EXPECT_FALSE(app.Open(7, "b", "", ""));
    EXPECT_EQ(app.live, 1) << "the engine that found no place was lost";
    EXPECT_FALSE(app.Execute(value, 8, "echo", "x", "", "", ""));
    EXPECT_FALSE(app.Close(8));
    EXPECT_EQ(value, "untouched");
    app.Destroy();
    EXPECT_EQ(app.live, 0);
}

TEST(AppBase, CloseWaitsForTheRunningCommand) {
    TestApp app;
    ASSERT_TRUE(app.Open(1, "a", "", ""));
    std::thread runner([&] {
        std::string value;
        EXPECT_TRUE(app.Execute(value, 1, "wait", "", "", "", ""));
    });
    ASSERT_TRUE(app.gate.WaitForGuest());
    std::thread closer([&] { EXPECT_TRUE(app.Close(1)); });
    app.gate.Open();
    runner.join();
    closer.join();
    EXPECT_EQ(app.live, 0);
    std::string value;
    EXPECT_FALSE(app.Execute(value, 1, "echo", "", "", "", ""));
}

}  // namespace
}  // namespace test
