// Clients that leave, do not read, do not speak, or come in numbers.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "Platform/Host/HostTest.h"
#include "Service/RawClient.h"

namespace test {
namespace {

// How far the process may grow while 16 MiB may wait. The sanitizers keep freed memory for long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kGrowth = size_t{400} << 20;
#else
constexpr size_t kGrowth = size_t{48} << 20;
#endif

// The resident memory of this process, in bytes.
size_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0;
    size_t resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// A client with a handle that reads no more than the number of it.
class StuckClient {
public:
    explicit StuckClient(const std::string& socketPath) : m_client(socketPath) {
        EXPECT_TRUE(m_client.Authenticate());
        EXPECT_GT(m_handle = m_client.Open(), 0);
    }
    void Execute(const char* command, const char* arg1, const char* arg2, const char* arg3) {
        m_client.Execute(m_handle, command, arg1, arg2, arg3);
    }
    bool IsCutOff() { return m_client.ReadToEnd(); }

private:
    RawClient m_client;
    int m_handle = -1;
};

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
    const Session stayer(Path());
    Session leaver(Path());
    for (int i = 0; i < 5; ++i) ASSERT_GT(leaver.client->Open(), 0);
    leaver.Send("wait");
    ASSERT_TRUE(app.gate.WaitForGuest());
    leaver.Send("echo");
    leaver.client.reset();
    ASSERT_TRUE(Until([&] { return app.live == 2; })) << "idle engines were kept";
    EXPECT_TRUE(stayer.IsServed());
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
    // Who has been answered is known to the service, and hears what it sends.
    for (const auto& client : {user.get(), listener.get()})
        EXPECT_EQ(client->Execute(handle, "echo", "still here").value, "still here");
    EXPECT_TRUE(user->Execute(handle, "events", "1", "", "NEWS").handled);
    EXPECT_TRUE(user->Wait("NEWS")) << "the caller hears nothing";
    EXPECT_TRUE(listener->Wait("NEWS")) << "the others hear nothing";
    EXPECT_EQ(listener->Close(handle), "");
    EXPECT_NE(user->Execute(handle, "echo").error, "") << "closed for all";
}

TEST_F(HostTest, StoppingEndsEnginesInTheMiddleOfCommands) {
    Start();
    const Session session(Path());
    session.Send("wait");
    ASSERT_TRUE(app.gate.WaitForGuest());
    for (int i = 0; i < 10; ++i) session.Send("echo");
    std::thread opener([this] { app.gate.Open(); });
    Stop();
    opener.join();
    EXPECT_TRUE(session.client->WaitUntilDisconnected());
}

// The flood is what a plugin makes that sends as fast as it can; the client's thread keeps
// reading, on the same two cores.
TEST_F(HostTest, AFloodReachesItsOwnerAloneWholeAndInOrder) {
    Start();
    const Session flooded(Path());
    const Session other(Path());
    DBusClient& client = *flooded.client;
    EXPECT_EQ(flooded.Execute("events", "50000", "200", "FLOOD").error, "");
    EXPECT_EQ(other.Execute("events", "1", "0", "THEIRS").error, "");
    ASSERT_TRUE(Until([&] { return client.EventsSeen() >= 50000 || !client.IsConnected(); }));
    int next = 0;
    for (const Event& event : client.TakeAll()) {
        ASSERT_EQ(event.handle, flooded.handle);
        ASSERT_EQ(std::stoi(event.payload), next++);
    }
    EXPECT_EQ(next, 50000);
    ASSERT_TRUE(other.client->Wait("THEIRS"));
    EXPECT_EQ(other.client->EventsSeen(), 1u);
}

TEST_F(HostTest, AClientThatNeverReadsIsCutOffAndMemoryStaysBounded) {
    Start([](platform::ServerOptions& options) { options.poolBytes = size_t{48} << 20; });
    const Session healthy(Path());
    StuckClient stuck(Path());
    const size_t before = ResidentBytes();
    stuck.Execute("events", "100000", "1000", "FLOOD");
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(healthy.IsServed());
    ASSERT_TRUE(Until([&] { return app.live == 1; })) << "the client was not cut off";
    EXPECT_LT(ResidentBytes(), before + kGrowth);
    EXPECT_NE(LogText().find("does not read its messages"), std::string::npos) << LogText();
    EXPECT_TRUE(stuck.IsCutOff());
    EXPECT_TRUE(healthy.IsServed());
}

// Answers wait in the same place as events do. What was read counts no longer: the other one is
// sent more in all than may wait.
TEST_F(HostTest, AClientThatAsksAndNeverReadsTheAnswersIsCutOff) {
    Start([](platform::ServerOptions& options) { options.poolBytes = size_t{12} << 20; });
    const Session reader(Path());
    StuckClient stuck(Path());
    const std::string large(500 * 1000, 'x');
    for (int i = 0; i < 20; ++i) ASSERT_EQ(reader.Execute("echo", large).value, large);
    for (int i = 0; i < 30000; ++i) stuck.Execute("echo", "", "", "");
    ASSERT_TRUE(Until([&] { return app.live == 1; }));
    EXPECT_TRUE(reader.IsServed());
}

TEST_F(HostTest, ClientsThatSpeakNoDBusHarmNobody) {
    Start();
    const std::string noise[] = {"", "GET / HTTP/1.1\r\n\r\n", std::string(100000, '\0'),
                                 std::string("\0AUTH ANONYMOUS\r\n", 17)};
    for (const auto& bytes : noise) RawClient(Path()).Write(bytes);
    RawClient talker(Path());
    ASSERT_TRUE(talker.Authenticate());
    talker.Write(std::string(64, '\xff'));
    EXPECT_TRUE(talker.ReadToEnd());
    RawClient silent(Path());
    EXPECT_TRUE(Session(Path()).IsServed());
}

TEST_F(HostTest, ConnectionsAreBounded) {
    Start([](platform::ServerOptions& options) { options.maxConnections = 2; });
    const auto first = Connect();
    auto second = Connect();
    EXPECT_THROW(Connect(), std::runtime_error);
    second.reset();
    EXPECT_TRUE(Until([&] {
        try {
            second = Connect();
        } catch (const std::runtime_error&) {
        }
        return second != nullptr;
    }));
}

TEST_F(HostTest, TheSocketIsPrivateAndALiveOneIsKept) {
    Start();
    struct stat folder {};
    ASSERT_EQ(stat(Folder().c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 0777, 0700u);
    struct stat socket {};
    ASSERT_EQ(stat(Path().c_str(), &socket), 0);
    EXPECT_EQ(socket.st_mode & 0777, 0600u);
    const std::string refusal = RefusalOfAnother();
    EXPECT_NE(refusal.find("another process serves"), std::string::npos) << refusal;
    EXPECT_TRUE(Session(Path()).IsServed()) << "the refused server took the socket away";
}

TEST_F(HostTest, AStaleSocketIsReplacedAndAFileIsNot) {
    ASSERT_EQ(mkdir(Folder().c_str(), 0700), 0);
    LeaveSocketBehind(Path());
    Start();
    EXPECT_TRUE(Session(Path()).IsServed());
    Stop();
    std::ofstream(Path()) << "precious";
    EXPECT_NE(RefusalOfAnother(), "");
    std::string text;
    std::ifstream(Path()) >> text;
    EXPECT_EQ(text, "precious");
}

}  // namespace
}  // namespace test
