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
#include <cerrno>
#include <fstream>

#include "Endurance/Faults/FaultTest.h"
#include "Endurance/Support/Vitals.h"

namespace endurance {
namespace {

namespace fs = std::filesystem;

constexpr int kPhotos = 40;

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
int Width(const std::string& page) {
    Json::Value root;
    Json::Reader().parse(page, root);
    int widest = 0;
    for (const auto& photo : root["photos"])
        widest = std::max(widest, atoi(photo["width"].asString().c_str()));
    return widest;
}

TEST_F(ProcessFaults, WithoutForkFilesAreListedAndReadOnceItWorksAgain) {
    const auto stick = AddPhotos("STICK", kPhotos);
    ServiceOptions options = Options();
    options.inChild = ForbidFork;
    options.environment.push_back("ASAN_OPTIONS=detect_leaks=0");  // which needs a process, too
    Start(options);
    {
        Visitor visitor(*m_service);
        EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(stick)), kPhotos) << m_service->Log();
        EXPECT_EQ(Width(visitor.Fetch(0, kPhotos)), 0);
        EXPECT_TRUE(m_service->WaitForLog("Resource temporarily unavailable")) << m_service->Log();
    }
    ASSERT_EQ(m_service->Stop(), 0);
    Start();
    Visitor visitor(*m_service);
    EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(stick)), kPhotos);
    EXPECT_GT(Width(visitor.Fetch(0, kPhotos)), 0) << m_service->Log();
}

// However few descriptors there are, the service says no and lives; with enough it says yes.
// Off until that holds: GLib ends the process when a thread of its own wants a wake-up pipe at a
// moment without any descriptor left. Rare; --gtest_also_run_disabled_tests shows it.
TEST_F(ProcessFaults, DISABLED_TheDescriptorLimitCostsAnswersNotTheService) {
    const auto stick = AddPhotos("STICK", kPhotos);
    Start();
    Visitor early(*m_service);
    ASSERT_TRUE(early.IsConnected());
    ASSERT_EQ(early.CountPhotos(early.StorageAt(stick)), kPhotos);
    rlimit before{};
    ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, nullptr, &before), 0);
    for (long spare = 12; spare >= 0; spare -= 2) {
        SCOPED_TRACE("spare descriptors: " + std::to_string(spare));
        rlimit few = before;
        few.rlim_cur = static_cast<rlim_t>(ReadVitals(m_service->Pid()).descriptors + spare);
        ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, &few, nullptr), 0);
        std::vector<std::unique_ptr<test::DBusClient>> clients;
        // Fewer than would wait in line for a descriptor for ever.
        for (long i = 0; i + 1 < spare; ++i) clients.push_back(m_service->NewClient());
        const std::string name = "WHILE" + std::to_string(spare);
        AddPhotos(name, 5);
        early.StorageAt(stick);
        early.Fetch(0, 10);
        early.Query("no-such-storage", "photo", "false");
        ASSERT_TRUE(m_service->IsRunning()) << m_service->Log();
    }
    ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_EQ(CountOn(stick), kPhotos) << m_service->Log();
    const auto late = AddPhotos("LATE", 30);
    Visitor visitor(*m_service);
    EXPECT_TRUE(WaitUntil([&] { return !visitor.StorageAt(late).empty(); })) << m_service->Log();
    EXPECT_EQ(visitor.CountPhotos(visitor.StorageAt(late)), 30) << m_service->Log();
}

TEST_F(ProcessFaults, TheClockMayJumpBackwards) {
    const auto stick = AddPhotos("STICK", kPhotos);
    const fs::path clock = m_scratch.Path() / "clock";
    const auto jump = [&](long seconds) { std::ofstream(clock) << seconds; };
    ServiceOptions options = Options();
    options.environment = {"LD_PRELOAD=" ENDURANCE_TIME_SHIM,
                           "ENDURE_CLOCK_FILE=" + clock.string()};
    jump(0);
    Start(options);
    Visitor visitor(*m_service);
    const std::string storage = visitor.StorageAt(stick);
    ASSERT_EQ(visitor.CountPhotos(storage), kPhotos);
    int files = kPhotos;
    for (const long days : {-1L, -3650L, 3650L, -20000L}) {
        SCOPED_TRACE("days: " + std::to_string(days));
        jump(days * 24 * 3600);
        visitor.Client().TakeAll();
        fs::copy_file(PhotoOn(stick), stick / ("new" + std::to_string(++files) + ".jpg"));
        m_sticks.PullOut("STICK");
        ASSERT_TRUE(visitor.Client().Wait("USB_DISCONNECTED")) << m_service->Log();
        m_sticks.PlugIn("STICK");
        ASSERT_TRUE(visitor.Client().Wait("USB_CONNECTED")) << m_service->Log();
        ASSERT_TRUE(visitor.Client().Wait("SYNC_COMPLETED")) << m_service->Log();
        EXPECT_EQ(visitor.CountPhotos(storage), files);
        EXPECT_NE(visitor.Fetch(0, 10), "");
    }
    // Restarted in what it takes for the past, it still knows the same.
    ASSERT_EQ(m_service->Stop(), 0);
    jump(-5000L * 24 * 3600);
    Start(options);
    EXPECT_EQ(CountOn(stick), files) << m_service->Log();
}

}  // namespace
}  // namespace endurance
