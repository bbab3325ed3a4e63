// The base classes as a plugin meets them, without a transport.
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace test
