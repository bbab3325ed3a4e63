// Commands and handles as one well-behaved client or several see them.
#include <utility>

#include "Platform/Host/HostTest.h"

namespace test {
namespace {

using namespace std::string_literals;

constexpr char kUnknown[] = "dorn.PlivHost1.Error.UnknownHandle";
constexpr char kLimit[] = "dorn.PlivHost1.Error.LimitReached";
constexpr char kFailed[] = "dorn.PlivHost1.Error.CommandFailed";

TEST_F(HostTest, AnswersCommands) {
    Start();
    const auto client = Connect();
    const int handle = client->Open();
    ASSERT_GT(handle, 0);
    struct {
        const char* command;
        const char* argument;
        bool handled;
        const char* value;
    } const cases[] = {
        {"echo", "text with ünïcode\n", true, "text with ünïcode\n"},
        {"echo", "", true, ""},
        {"number", "-10", true, "-10"},
        {"nothing of the kind", "", false, ""},
        {"", "", false, ""},
    };
    for (const auto& test : cases) {
        const Answer answer = client->Execute(handle, test.command, test.argument);
        EXPECT_EQ(answer.error, "") << test.command;
        EXPECT_EQ(answer.handled, test.handled) << test.command;
        EXPECT_EQ(answer.value, test.value) << test.command;
    }
    EXPECT_EQ(client->ExecuteWithParamList(handle, "list", {"a", "", "c"}).value, "list:[a][][c]");
    EXPECT_EQ(client->ExecuteWithParamList(handle, "list", {}).value, "list:");
    EXPECT_FALSE(client->ExecuteWithParamList(handle, "", {"x"}).handled);
}

TEST_F(HostTest, ExceptionsBecomeErrorsThatNameThem) {
    Start();
    const auto client = Connect();
    const int handle = client->Open();
    const std::pair<const char*, const char*> cases[] = {
        {"standard", "std::out_of_range: the reason"},
        {"string", "std::string: the reason"},
        {"text", "the reason"},
        {"number", "int"},
    };
    for (const auto& [what, text] : cases) {
        const Answer answer = client->Execute(handle, "throw", what);
        EXPECT_EQ(answer.error, kFailed) << what;
        EXPECT_NE(answer.text.find(text), std::string::npos) << answer.text;
    }
    EXPECT_EQ(client->Execute(handle, "echo", "alive").value, "alive");
}

TEST_F(HostTest, UnknownForeignAndClosedHandlesAreRefused) {
    Start();
    const auto owner = Connect();
    const auto stranger = Connect();
    const int handle = owner->Open();
    for (const int wrong : {0, -1, handle + 1000, handle}) {
        EXPECT_EQ(stranger->Execute(wrong, "echo").error, kUnknown) << wrong;
        EXPECT_EQ(stranger->ExecuteWithParamList(wrong, "list", {}).error, kUnknown) << wrong;
        EXPECT_EQ(stranger->Close(wrong), kUnknown) << wrong;
    }
    EXPECT_EQ(owner->Close(handle), "");
    EXPECT_EQ(app.live, 0) << "Close answered before the engine was gone";
    EXPECT_EQ(owner->Close(handle), kUnknown);
    EXPECT_EQ(owner->Execute(handle, "echo").error, kUnknown);
}

TEST_F(HostTest, TextThatIsNotUtf8IsRepaired) {
    Start();
    const auto client = Connect();
    const int handle = client->Open();
    const std::string clean =
        "caf\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd"
        "end";
    EXPECT_EQ(client->Execute(handle, "dirty").value, clean);
    const auto event = client->Wait(clean);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->payload, clean);
    EXPECT_EQ(event->kind, 1);
}

TEST_F(HostTest, EventsReachTheirOwnerAloneAndInOrder) {
    Start();
    const auto first = Connect();
    const auto second = Connect();
    const int handle = first->Open();
    const int other = second->Open();
    first->Execute(handle, "events", "500", "0", "MINE");
    second->Execute(other, "events", "1", "0", "THEIRS");
    ASSERT_TRUE(second->Wait("THEIRS"));
    for (int i = 0; i < 500; ++i) {
        const auto event = first->Wait("MINE");
        ASSERT_TRUE(event);
        ASSERT_EQ(event->payload, std::to_string(i));
        ASSERT_EQ(event->handle, handle);
    }
    EXPECT_EQ(first->EventsSeen(), 500u);
    EXPECT_EQ(second->EventsSeen(), 1u);
}

TEST_F(HostTest, ASlowCommandHoldsUpItsOwnHandleOnly) {
    Start();
    const auto slow = Connect();
    const auto quick = Connect();
    const int waiting = slow->Open();
    const int besides = slow->Open();
    const int other = quick->Open();
    slow->Send(waiting, "wait");
    ASSERT_TRUE(app.gate.WaitForGuests(1));
    slow->Send(waiting, "events", "1");
    EXPECT_EQ(slow->Execute(besides, "echo", "same client").value, "same client");
    EXPECT_EQ(quick->Execute(other, "echo", "other client").value, "other client");
    EXPECT_EQ(slow->EventsSeen(), 0u) << "a command overtook the one before it";
    app.gate.Open();
    EXPECT_EQ(slow->Execute(waiting, "echo", "after").value, "after");
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
    const auto client = Connect();
    const int handle = client->Open();
    client->Send(handle, "wait");
    ASSERT_TRUE(app.gate.WaitForGuests(1));
    for (int i = 0; i < 1024; ++i) client->Send(handle, "echo");
    EXPECT_EQ(client->Execute(handle, "echo").error, kLimit);
    app.gate.Open();
    ASSERT_TRUE(Until([&] { return app.executed == 1025; }));
    EXPECT_EQ(client->Execute(handle, "echo", "again").value, "again");
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
