// A clock that jumps, no new process, no new descriptor.
#include <json/json.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Endurance/Faults/FaultTest.h"
#include "Service/RawClient.h"
#include "Service/Vitals.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using ProcessFaults = FaultTest;

// From now on no process can be made; threads can. Async-signal-safe.
void ForbidFork() {
    constexpr unsigned kFail = SECCOMP_RET_ERRNO | EAGAIN;
    constexpr unsigned kNoSuchCall = SECCOMP_RET_ERRNO | ENOSYS;
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        // The flags of clone3 are out of a filter's sight; without it the library takes clone.
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, kNoSuchCall),
#ifdef SYS_fork
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fork, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, kFail),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_vfork, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, kFail),
#endif
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, kFail),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog filter{sizeof program / sizeof program[0], program};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
}

fs::path PhotoOn(const fs::path& stick) {
    for (const auto& entry : fs::recursive_directory_iterator(stick))
        if (entry.path().extension() == ".jpg") return entry.path();
    return {};
}

// Of the widest photo on the page.
int Width(const Json::Value& page) {
    int widest = 0;
    for (const auto& photo : page["photos"])
        widest = std::max(widest, atoi(photo["width"].asString().c_str()));
    return widest;
}

TEST_F(ProcessFaults, WithoutForkFilesAreListedAndReadOnceItWorksAgain) {
    const auto stick = AddPhotos("STICK");
    ServiceOptions options = Options();
    options.inChild = ForbidFork;
    options.environment = {{"ASAN_OPTIONS", "detect_leaks=0"}};  // which needs a process, too
    StartService(options);
    {
        MediaClient visitor(Socket());
        EXPECT_EQ(visitor.Query(visitor.StorageAt(stick)), kPhotos) << m_service->Log();
        EXPECT_EQ(Width(visitor.Fetch(0, kPhotos)), 0);
        EXPECT_TRUE(m_service->WaitForLog("Resource temporarily unavailable")) << m_service->Log();
    }
    StopService();
    StartService();
    MediaClient visitor(Socket());
    EXPECT_EQ(visitor.Query(visitor.StorageAt(stick)), kPhotos);
    EXPECT_GT(Width(visitor.Fetch(0, kPhotos)), 0) << m_service->Log();
}

// As a system starts it that gives every process few and lets it take more. Async-signal-safe.
void LowerSoftLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 200);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The lowest descriptor that the process could get next.
rlim_t LowestFree(pid_t process) {
    std::error_code error;
    rlim_t number = 0;
    const auto isOpen = [&] {
        const fs::path link = fs::path("/proc") / std::to_string(process) / "fd";
        return fs::symlink_status(link / std::to_string(number), error).type() ==
               fs::file_type::symlink;
    };
    while (isOpen()) ++number;
    return number;
}

// Clients that all do the same at once, each on a thread of its own: come, ask, go.
class Crowd {
public:
    explicit Crowd(const ServiceProcess& service) : m_service(service) {}
    ~Crowd() { Join(); }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    void Come(int clients) {
        for (int i = 0; i < clients; ++i) m_threads.emplace_back([this] { VisitOnce(); });
    }
    // Returns when every one was turned away or has all its answers.
    void Join() {
        for (auto& thread : m_threads) thread.join();
        m_threads.clear();
    }
    int TurnedAway() const { return m_turnedAway; }
    int Unanswered() const { return m_unanswered; }

private:
    void VisitOnce() {
        try {
            const auto client = m_service.NewClient();
            const int handle = client->Open("crowd");
            for (const char* command : {"Connect", "GetStorages", "Disconnect"})
                if (client->Execute(handle, command).text.find("imeout") != std::string::npos)
                    ++m_unanswered;
        } catch (const std::runtime_error&) {
            ++m_turnedAway;
        }
    }

    const ServiceProcess& m_service;
    std::vector<std::thread> m_threads;
    std::atomic<int> m_turnedAway{0};
    std::atomic<int> m_unanswered{0};
};

// However few descriptors there are, the service says no and lives; with enough it says yes.
class DescriptorFaults : public FaultTest {
protected:
    void SetUp() override {
#ifdef ENDURANCE_CHECKS_NEED_DESCRIPTORS
        GTEST_SKIP() << "this build's checks of virtual pointers need descriptors themselves";
#endif
    }
    void SetLimit(rlim_t limit) {
        rlimit few = m_before;
        few.rlim_cur = limit;
        ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    }
    ServiceOptions FewDescriptors() const {
        ServiceOptions options = Options();
        options.inChild = LowerSoftLimit;
        return options;
    }
    void StartAndNoteLimit() {
        m_stick = AddPhotos("STICK");
        StartService(FewDescriptors());
        ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, nullptr, &m_before), 0);
        EXPECT_EQ(m_before.rlim_cur, m_before.rlim_max) << "it takes all that it may have";
    }
    rlim_t CountOpen() const {
        return static_cast<rlim_t>(ReadVitals(m_service->Pid()).descriptors);
    }
    // Everything that takes a descriptor, at once.
    void BeBusy(const std::string& name, MediaClient& visitor, Crowd& crowd) {
        crowd.Come(3);
        AddPhotos(name, 5);
        visitor.StorageAt(m_stick);
        visitor.FetchEvent(0, 10);
        visitor.Query("no-such-storage", "photo", "", "false");
        visitor.Query(m_id, "photo", "", "false");
        ASSERT_TRUE(m_service->IsRunning()) << m_service->Log();
    }
    void ExpectFullService() {
        EXPECT_EQ(CountOn(m_stick), kPhotos) << m_service->Log();
        const auto late = AddPhotos("LATE", 30);
        MediaClient visitor(Socket());
        EXPECT_TRUE(Until([&] { return !visitor.StorageAt(late).empty(); })) << m_service->Log();
        EXPECT_EQ(visitor.Query(visitor.StorageAt(late)), 30) << m_service->Log();
    }

    fs::path m_stick;
    std::string m_id;
    rlimit m_before{};
};

TEST_F(DescriptorFaults, TheLimitCostsAnswersNotTheService) {
    StartAndNoteLimit();
    MediaClient early(Socket());
    ASSERT_TRUE(early.IsConnected());
    m_id = early.StorageAt(m_stick);
    ASSERT_EQ(early.Query(m_id), kPhotos);
    Crowd crowd(*m_service);
    for (rlim_t spare = 17; spare-- > 0;) {
        SCOPED_TRACE("spare descriptors: " + std::to_string(spare));
        SetLimit(m_before.rlim_cur);
        crowd.Come(2);  // these may be in at any point when the descriptors run out
        SetLimit(CountOpen() + spare);
        BeBusy("SPARE" + std::to_string(spare), early, crowd);
    }
    for (const rlim_t part : {1, 2}) {
        SCOPED_TRACE("none to be had, the limit is a part of what is open: " +
                     std::to_string(part));
        SetLimit(LowestFree(m_service->Pid()) / part);
        BeBusy("NONE" + std::to_string(part), early, crowd);
    }
    EXPECT_LT(Told("turned away"), 5u) << "a line for each would flood the log";
    EXPECT_LT(Told("Too many open files"), 1000u) << "something tries again at once";
    SetLimit(m_before.rlim_cur);
    crowd.Join();
    EXPECT_GT(crowd.TurnedAway(), 0);
    EXPECT_EQ(crowd.Unanswered(), 0);
    ExpectFullService();
    // What was plugged in meanwhile is found without any event to tell of it.
    for (const char* name : {"SPARE16", "SPARE8", "SPARE0", "NONE1", "NONE2"})
        EXPECT_TRUE(Until([&] { return !early.StorageAt(m_sticks.PathOf(name)).empty(); }))
            << name << ": " << m_service->Log();
}

// The very first connection makes what later ones share.
TEST_F(DescriptorFaults, FirstClientsMayComeWhenThereIsNoneLeft) {
    m_stick = AddPhotos("STICK");
    m_service = std::make_unique<ServiceProcess>(FewDescriptors());
    ASSERT_TRUE(m_service->WaitForLog("serving")) << m_service->Log();
    ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, nullptr, &m_before), 0);
    for (rlim_t spare = 6; spare-- > 0;) {
        SetLimit(CountOpen() + spare);
        EXPECT_THROW(m_service->NewClient(), std::runtime_error);
        ASSERT_TRUE(m_service->IsRunning()) << m_service->Log();
    }
    SetLimit(m_before.rlim_cur);
    ExpectFullService();
}

TEST_F(DescriptorFaults, WhoWaitsInLineIsServedWhenThereIsRoom) {
    StartAndNoteLimit();
    SetLimit(LowestFree(m_service->Pid()) / 2);  // so that giving one up makes no room either
    std::vector<std::unique_ptr<RawClient>> line;
    for (int i = 0; i < 5; ++i) line.push_back(std::make_unique<RawClient>(Socket()));
    ASSERT_TRUE(m_service->WaitForLog("wait in line")) << m_service->Log();
    SetLimit(m_before.rlim_cur);
    for (auto& client : line) EXPECT_TRUE(client->Authenticate()) << m_service->Log();
    line.clear();
    ExpectFullService();
}

TEST_F(ProcessFaults, TheClockMayJumpBackwards) {
    const auto stick = AddPhotos("STICK");
    const fs::path clock = m_scratch / "clock";
    const auto jump = [&](long seconds) { std::ofstream(clock) << seconds; };
    ServiceOptions options = Options();
    options.environment = {{"LD_PRELOAD", ENDURANCE_TIME_SHIM},
                           {"ENDURE_CLOCK_FILE", clock.string()}};
    jump(0);
    StartService(options);
    MediaClient visitor(Socket());
    const std::string storage = visitor.StorageAt(stick);
    ASSERT_EQ(visitor.Query(storage), kPhotos);
    int files = kPhotos;
    for (const long days : {-1L, -3650L, 3650L, -20000L}) {
        SCOPED_TRACE("days: " + std::to_string(days));
        jump(days * 24 * 3600);
        visitor.Raw().TakeAll();
        fs::copy_file(PhotoOn(stick), stick / ("new" + std::to_string(++files) + ".jpg"));
        m_sticks.PullOut("STICK");
        ASSERT_TRUE(visitor.Raw().Wait("USB_DISCONNECTED")) << m_service->Log();
        m_sticks.PlugIn("STICK");
        ASSERT_TRUE(visitor.Raw().Wait("USB_CONNECTED")) << m_service->Log();
        ASSERT_TRUE(visitor.Raw().Wait("SYNC_COMPLETED")) << m_service->Log();
        EXPECT_EQ(visitor.Query(storage), files);
        EXPECT_NE(visitor.FetchEvent(0, 10), "");
    }
    // Restarted in what it takes for the past, it still knows the same.
    StopService();
    jump(-5000L * 24 * 3600);
    StartService(options);
    EXPECT_EQ(CountOn(stick), files) << m_service->Log();
}

}  // namespace
}  // namespace test
