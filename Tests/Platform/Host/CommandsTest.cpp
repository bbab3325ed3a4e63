// Commands and handles as one well-behaved client or several see them.
#include <utility>

#include "Platform/Host/HostTest.h"
#include "Service/RawClient.h"

namespace test {
namespace {

constexpr char kUnknown[] = "dorn.PlivHost1.Error.UnknownHandle";
constexpr char kLimit[] = "dorn.PlivHost1.Error.LimitReached";
constexpr char kFailed[] = "dorn.PlivHost1.Error.CommandFailed";

// The commands of the real plugin are in Tests/EndToEnd.
TEST_F(HostTest, AnswersWithTheEnginesValues) {
    Start();
    const Session session(Path());
    EXPECT_EQ(session.Execute("echo", "text with ünïcode\n").value, "text with ünïcode\n");
    EXPECT_EQ(session.Execute("number", "-10").value, "-10");
    EXPECT_FALSE(session.Execute("nothing of the kind").handled);
    const auto withList = [&](const char* command, const std::vector<std::string>& params) {
        return session.client->ExecuteWithParamList(session.handle, command, params);
    };
    EXPECT_EQ(withList("list", {"a", "", "c"}).value, "list:[a][][c]");
    EXPECT_EQ(withList("list", {}).value, "list:");
    EXPECT_FALSE(withList("", {"x"}).handled);
}

TEST_F(HostTest, ExceptionsBecomeErrorsThatNameThem) {
    Start();
    const Session session(Path());
    const std::pair<const char*, const char*> cases[] = {
        {"standard", "std::out_of_range: the reason"},
        {"string", "std::string: the reason"},
        {"text", "the reason"},
        {"number", "int"},
    };
    for (const auto& [what, text] : cases) {
        const Answer answer = session.Execute("throw", what);
        EXPECT_EQ(answer.error, kFailed) << what;
        EXPECT_NE(answer.text.find(text), std::string::npos) << answer.text;
    }
    EXPECT_TRUE(session.IsServed());
}

TEST_F(HostTest, UnknownForeignAndClosedHandlesAreRefused) {
    Start();
    const Session owner(Path());
    const auto stranger = Connect();
    for (const int wrong : {0, -1, owner.handle + 1000, owner.handle}) {
        EXPECT_EQ(stranger->Execute(wrong, "echo").error, kUnknown) << wrong;
        EXPECT_EQ(stranger->ExecuteWithParamList(wrong, "list", {}).error, kUnknown) << wrong;
        EXPECT_EQ(stranger->Close(wrong), kUnknown) << wrong;
    }
    EXPECT_EQ(owner.client->Close(owner.handle), "");
    EXPECT_EQ(app.live, 0) << "Close answered before the engine was gone";
    EXPECT_EQ(owner.client->Close(owner.handle), kUnknown);
    EXPECT_EQ(owner.Execute("echo").error, kUnknown);
}

TEST_F(HostTest, TextThatIsNotUtf8IsRepaired) {
    Start();
    const Session session(Path());
    const std::string clean =
        "caf\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd"
        "end";
    EXPECT_EQ(session.Execute("dirty").value, clean);
    const auto event = session.client->Wait(clean);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->payload, clean);
    EXPECT_EQ(event->kind, 1);
}

TEST_F(HostTest, ASlowCommandHoldsUpItsOwnHandleOnly) {
    Start();
    const Session slow(Path());
    const Session quick(Path());
    const int besides = slow.client->Open();
    slow.Send("wait");
    ASSERT_TRUE(app.gate.WaitForGuest());
    slow.Send("events", "1");
    EXPECT_EQ(slow.client->Execute(besides, "echo", "same client").value, "same client");
    EXPECT_TRUE(quick.IsServed());
    EXPECT_EQ(slow.client->EventsSeen(), 0u) << "a command overtook the one before it";
    app.gate.Open();
    EXPECT_TRUE(slow.IsServed());
}

// Commands have a shorter way than other calls; what is sent in one go must keep its order all the
// same.
TEST_F(HostTest, CommandsDoNotOvertakeTheCallsBeforeThem) {
    Start();
    constexpr int kRounds = 100;
    for (int round = 0; round < kRounds; ++round) {
        RawClient client(Path());
        ASSERT_TRUE(client.Authenticate());
        const int handle = client.Open();
        ASSERT_GT(handle, 0);
        client.Execute(handle, "echo");
        client.Call("GetScanProgress", nullptr);
        client.Execute(handle, "echo");
        client.Call("Close", g_variant_new("(i)", handle));
        client.Execute(handle, "echo");
        ASSERT_TRUE(Until([&] { return app.live == 0; }));
    }
    EXPECT_EQ(app.executed, 2 * kRounds) << "a command was run after the Close before it";
}

TEST_F(HostTest, HandlesAreBoundedAndTheirPlacesComeBack) {
    Start([](platform::ServerOptions& options) { options.handles = {5, 3}; });
    const auto first = Connect();
    const auto second = Connect();
    int last = -1;
    for (int i = 0; i < 3; ++i) ASSERT_GT(last = first->Open(), 0);
    EXPECT_EQ(first->TryOpen().error, kLimit) << "more than one client may have";
    for (int i = 0; i < 2; ++i) ASSERT_GT(second->Open(), 0);
    EXPECT_EQ(second->TryOpen().error, kLimit) << "more than the service may have";
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(first->Close(last), "");
        ASSERT_GT(last = first->Open(), 0) << "a closed handle's place was not given back";
    }
}

TEST_F(HostTest, CommandsThatWaitAreBounded) {
    Start();
    const Session session(Path());
    session.Send("wait");
    ASSERT_TRUE(app.gate.WaitForGuest());
    for (int i = 0; i < 1024; ++i) session.Send("echo");
    EXPECT_EQ(session.Execute("echo").error, kLimit);
    app.gate.Open();
    ASSERT_TRUE(Until([&] { return app.executed == 1025; }));
    EXPECT_TRUE(session.IsServed());
}

TEST_F(HostTest, CommandsAreBoundedInBytesToo) {
    Start([](platform::ServerOptions& options) { options.poolBytes = size_t{20} << 20; });
    const Session greedy(Path());
    const Session other(Path());
    EXPECT_EQ(greedy.Execute("echo", std::string(1 << 20, 'x')).error, kLimit) << "one alone";
    EXPECT_EQ(greedy.Execute(std::string(30 << 20, 'n')).error, kLimit);
    greedy.Send("wait");
    ASSERT_TRUE(app.gate.WaitForGuest());
    const std::string large(500 * 1000, 'x');
    for (int i = 0; i < 30; ++i) greedy.Send("echo", large);
    EXPECT_EQ(greedy.Execute("echo", large).error, kLimit);
    EXPECT_NE(LogText().find("commands are refused"), std::string::npos);
    EXPECT_EQ(other.Execute("echo", large).value, large) << "nobody else's";
    app.gate.Open();
    ASSERT_TRUE(Until([&] { return app.executed == 10; }))
        << "the wait, eight of them, the other's";
    EXPECT_EQ(greedy.Execute("echo", large).value, large) << "what has run counts no longer";
}

TEST_F(HostTest, AnEngineThatCannotBeMadeIsAnError) {
    Start();
    const auto client = Connect();
    app.throws = true;
    EXPECT_NE(client->TryOpen().text.find("no engine today"), std::string::npos);
    app.throws = false;
    app.refuse = true;
    EXPECT_EQ(client->TryOpen().error, "dorn.PlivHost1.Error.OpenFailed");
    app.refuse = false;
    EXPECT_GT(client->Open(), 0);
}

}  // namespace
}  // namespace test
