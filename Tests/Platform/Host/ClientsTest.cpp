// Clients that leave, do not read, do not speak, or come in numbers.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "EndToEnd/Support/RawClient.h"
#include "Platform/Host/HostTest.h"

namespace test {
namespace {

// How far the process may grow while 16 MiB may wait. The sanitizers keep freed memory for long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kGrowth = size_t{400} << 20;
#else
constexpr size_t kGrowth = size_t{48} << 20;
#endif

// As a process leaves it that was killed.
void LeaveSocketBehind(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int file = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(file);
}

TEST_F(HostTest, AClientThatLeavesTakesItsEnginesAlong) {
    Start();
    auto leaver = Connect();
    const auto stayer = Connect();
    const int kept = stayer->Open();
    const int busy = leaver->Open();
    for (int i = 0; i < 5; ++i) ASSERT_GT(leaver->Open(), 0);
    leaver->Send(busy, "wait");
    ASSERT_TRUE(app.gate.WaitForGuests(1));
    leaver->Send(busy, "echo");
    leaver.reset();
    ASSERT_TRUE(Until([&] { return app.live == 2; })) << "idle engines were kept";
    EXPECT_EQ(stayer->Execute(kept, "echo", "on").value, "on");
    app.gate.Open();
    ASSERT_TRUE(Until([&] { return app.live == 1; })) << "the busy engine was kept";
    EXPECT_EQ(app.executed, 2) << "a command of a client that had left was run";
}

TEST_F(HostTest, ALastingHandleOutlivesItsOpenerAndServesEverybody) {
    Start([](platform::ServerOptions& options) { options.handles.lasting = 1; });
    const int handle = Connect()->OpenLasting();
    ASSERT_GT(handle, 0);
    const auto user = Connect();
    const auto listener = Connect();
    EXPECT_EQ(user->OpenLasting(), -1) << "past the limit";
    EXPECT_EQ(user->Execute(handle, "echo", "still here").value, "still here");
    EXPECT_TRUE(user->Execute(handle, "events", "1", "", "NEWS").handled);
    EXPECT_TRUE(user->Wait("NEWS")) << "the caller hears nothing";
    EXPECT_TRUE(listener->Wait("NEWS")) << "the others hear nothing";
    EXPECT_EQ(listener->Close(handle), "");
    EXPECT_NE(user->Execute(handle, "echo").error, "") << "closed for all";
}

TEST_F(HostTest, StoppingEndsEnginesInTheMiddleOfCommands) {
    Start();
    const auto client = Connect();
    const int handle = client->Open();
    client->Send(handle, "wait");
    ASSERT_TRUE(app.gate.WaitForGuests(1));
    for (int i = 0; i < 10; ++i) client->Send(handle, "echo");
    std::thread opener([this] { app.gate.Open(); });
    Stop();
    opener.join();
    EXPECT_TRUE(client->WaitUntilDisconnected());
}

// The flood is what a plugin makes that sends as fast as it can; the client's thread keeps
// reading, on the same two cores.
TEST_F(HostTest, AClientThatReadsSurvivesAFlood) {
    Start();
    const auto client = Connect();
    const int handle = client->Open();
    EXPECT_EQ(client->Execute(handle, "events", "100000", "200", "FLOOD").error, "");
    ASSERT_TRUE(Until([&] { return client->EventsSeen() == 100000 || !client->IsConnected(); }));
    EXPECT_EQ(client->EventsSeen(), 100000u);
    int next = 0;
    for (const Event& event : client->TakeAll()) ASSERT_EQ(std::stoi(event.payload), next++);
}

TEST_F(HostTest, AClientThatNeverReadsIsCutOffAndMemoryStaysBounded) {
    Start([](platform::ServerOptions& options) { options.outbox.waitingBytes = size_t{16} << 20; });
    const auto healthy = Connect();
    const int handle = healthy->Open();
    RawClient stuck(Path());
    ASSERT_TRUE(stuck.Authenticate());
    stuck.Call("Open", g_variant_new("(s)", "stuck"));
    const int flooded = stuck.ReadHandle();
    ASSERT_GT(flooded, 0);
    const size_t before = ResidentBytes();
    stuck.Call("Execute",
               g_variant_new("(isssss)", flooded, "events", "100000", "1000", "FLOOD", ""));
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(healthy->Execute(handle, "echo", "served").value, "served");
    ASSERT_TRUE(Until([&] { return app.live == 1; })) << "the client was not cut off";
    EXPECT_LT(ResidentBytes(), before + kGrowth);
    EXPECT_NE(LogText().find("does not read its messages"), std::string::npos) << LogText();
    EXPECT_TRUE(stuck.ReadToEnd());
    EXPECT_EQ(healthy->Execute(handle, "echo", "still").value, "still");
}

// Answers wait in the same place as events do.
TEST_F(HostTest, AClientThatAsksAndNeverReadsTheAnswersIsCutOff) {
    Start([](platform::ServerOptions& options) { options.outbox.waitingBytes = size_t{4} << 20; });
    RawClient stuck(Path());
    ASSERT_TRUE(stuck.Authenticate());
    stuck.Call("Open", g_variant_new("(s)", "stuck"));
    const int handle = stuck.ReadHandle();
    const std::string large(100 * 1000, 'x');
    for (int i = 0; i < 200; ++i)
        stuck.Call("Execute", g_variant_new("(isssss)", handle, "echo", large.c_str(), "", "", ""));
    ASSERT_TRUE(Until([&] { return app.live == 0; }));
}

TEST_F(HostTest, ClientsThatSpeakNoDBusHarmNobody) {
    Start();
    const std::string noise[] = {"", "GET / HTTP/1.1\r\n\r\n", std::string(100000, '\0'),
                                 std::string("\0AUTH ANONYMOUS\r\n", 17)};
    for (const auto& bytes : noise) {
        RawClient client(Path());
        client.Write(bytes);
    }
    RawClient talker(Path());
    ASSERT_TRUE(talker.Authenticate());
    talker.Write(std::string(64, '\xff'));
    EXPECT_TRUE(talker.ReadToEnd());
    RawClient silent(Path());
    const auto client = Connect();
    EXPECT_GT(client->Open(), 0);
}

TEST_F(HostTest, ConnectionsAreBounded) {
    Start([](platform::ServerOptions& options) { options.maxConnections = 2; });
    const auto first = Connect();
    auto second = Connect();
    EXPECT_THROW(Connect(), std::runtime_error);
    second.reset();
    std::unique_ptr<DBusClient> third;
    EXPECT_TRUE(Until([&] {
        try {
            third = Connect();
        } catch (const std::runtime_error&) {
        }
        return third != nullptr;
    }));
}

TEST_F(HostTest, FourClientsOpenAndCloseTwoHundredEnginesWhileCommandsRun) {
    Start();
    std::vector<std::thread> clients;
    for (int c = 0; c < 4; ++c) {
        clients.emplace_back([this] {
            auto client = Connect();
            for (int i = 0; i < 50; ++i) {
                const int handle = client->Open();
                ASSERT_GT(handle, 0);
                client->Send(handle, "events", "20");
                EXPECT_EQ(client->Execute(handle, "echo", "x").value, "x");
                client->Send(handle, "echo");
                if (i % 3 != 0) {
                    EXPECT_EQ(client->Close(handle), "");
                }
                if (i % 10 == 9) client = Connect();
            }
        });
    }
    for (auto& client : clients) client.join();
    EXPECT_TRUE(Until([&] { return app.live == 0; }));
}

TEST_F(HostTest, TheSocketIsPrivateAndALiveOneIsKept) {
    Start();
    struct stat folder {};
    ASSERT_EQ(stat((Folder() + "/run").c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 0777, 0700u);
    platform::ServerOptions options;
    options.socketPath = Path();
    std::string refusal;
    std::thread([&] {
        try {
            platform::Server second(app, options);
        } catch (const std::runtime_error& error) {
            refusal = error.what();
        }
    }).join();
    EXPECT_NE(refusal.find("another process serves"), std::string::npos) << refusal;
    EXPECT_GT(Connect()->Open(), 0) << "the refused server took the socket away";
}

TEST_F(HostTest, AStaleSocketIsReplacedAndAFileIsNot) {
    const std::string run = Folder() + "/run";
    ASSERT_EQ(mkdir(run.c_str(), 0700), 0);
    LeaveSocketBehind(Path());
    Start();
    EXPECT_GT(Connect()->Open(), 0);
    Stop();
    std::ofstream(Path()) << "precious";
    platform::ServerOptions options;
    options.socketPath = Path();
    std::thread([&] { EXPECT_THROW(platform::Server(app, options), std::runtime_error); }).join();
    std::ifstream kept(Path());
    std::string text;
    kept >> text;
    EXPECT_EQ(text, "precious");
}

}  // namespace
}  // namespace test
