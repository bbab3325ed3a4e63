#include <gtest/gtest.h>
#include <stdlib.h>

#include <vector>

#include "Log/Log.h"
#include "PlivHost/Options.h"

namespace test {
namespace {

using Arguments = std::vector<const char*>;

std::variant<platform::HostOptions, platform::UsageError> Parse(Arguments arguments) {
    arguments.insert(arguments.begin(), "contents-mgr");
    return platform::ParseHostOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, BadUsageIsToldInWords) {
    setenv("XDG_RUNTIME_DIR", "/run/user/1", 1);  // a session without it would be told of that
    const struct {
        Arguments arguments;
        const char* text;
    } cases[] = {
        {{"--nonsense"}, "nonsense"},
        {{"extra"}, "extra"},
        {{"--", "extra"}, "extra"},
        {{"--address"}, "address"},
        {{"--address", "tcp:host=localhost"}, "unix:path="},
        {{"--address", "unix:path=relative"}, "absolute"},
        {{"--address", "unix:path=/a,guid=1"}, "unix:path="},
        {{"--address", "unix:path=/a", "--bus", "session"}, "exclude"},
        {{"--bus", "omni"}, "omni"},
        {{"--usb", "thunder"}, "thunder"},
        {{"--usb-root", "/tmp"}, "--usb directory"},
        {{"--usb", "directory", "--usb-root", "relative"}, "absolute"},
        {{"--log-level", "loud"}, "loud"},
    };
    for (const auto& test : cases) {
        const auto parsed = Parse(test.arguments);
        const auto* fault = std::get_if<platform::UsageError>(&parsed);
        ASSERT_TRUE(fault) << test.text;
        EXPECT_NE(fault->text.find(test.text), std::string::npos) << fault->text;
    }
}

TEST(Options, GivenOnesAreTaken) {
    const auto parsed = Parse({"--address", "unix:path=/a%20b/s", "--log-level", "trace"});
    const auto& options = std::get<platform::HostOptions>(parsed);
    EXPECT_EQ(options.socketPath, "/a b/s");
    EXPECT_EQ(options.logPriority, int{DLOG_PRIORITY_TRACE});
}

TEST(Options, DefaultsFollowTheEnvironment) {
    setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
    setenv("XDG_STATE_HOME", "/state", 1);
    const auto parsed = Parse({});
    const auto& options = std::get<platform::HostOptions>(parsed);
    EXPECT_EQ(options.socketPath, "/run/user/7/contents-mgr/socket");
    EXPECT_EQ(options.databaseFile, "/state/contents-mgr/media.db");
    EXPECT_EQ(options.usb.root, "/opt/storage/usb");
    EXPECT_FALSE(options.hasLogPriority);
    unsetenv("XDG_RUNTIME_DIR");
    unsetenv("XDG_STATE_HOME");
}

// What comes before the command line has been read obeys it; a long text loses its end, never half
// a character.
TEST(Log, LinesAreHeldAndCut) {
    const struct {
        std::string given;
        std::string logged;
    } cases[] = {
        {std::string(512, 'a'), std::string(512, 'a')},
        {std::string(100000, 'a'), std::string(512, 'a') + "... (100000 bytes)"},
        {std::string(511, 'a') + "\u00fc", std::string(511, 'a') + "... (513 bytes)"},
        {std::string(600, '\xfc'), std::string(512, '\xfc') + "... (600 bytes)"},
    };
    std::vector<std::string> logged;
    platform::SetLogSink([&](const platform::LogLine& line) { logged.push_back(line.text); });
    platform::HoldLog();
    for (const auto& test : cases)
        PLATFORM_LOG("TEST", platform::LOG_INFO, "%s", test.given.c_str());
    PLATFORM_LOG("TEST", DLOG_PRIORITY_PROGRESS, "not for this level");
    EXPECT_TRUE(logged.empty());
    platform::SetLogPriority(platform::LOG_INFO);
    platform::ReleaseLog();
    platform::SetLogPriority(DLOG_PRIORITY_PROGRESS);
    platform::SetLogSink(nullptr);
    ASSERT_EQ(logged.size(), std::size(cases));
    for (size_t i = 0; i < logged.size(); ++i) EXPECT_EQ(logged[i], cases[i].logged);
}

}  // namespace
}  // namespace test
