// The pool against helpers that misbehave.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "ExtractSupport.h"
#include "Service/Program.h"

namespace {

using namespace platform;

class PoolTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TempFolder;
        Output({SAMPLE_MAKER, "--photos", s_folder->Path(), "8"});
    }
    static void TearDownTestSuite() {
        delete s_folder;
        s_folder = nullptr;
    }
    static std::string Photo() { return *s_folder / "IMG_0001.jpg"; }

    // The stand-in under the name that makes it misbehave so.
    static ExtractorOptions Bad(const std::string& how) {
        ExtractorOptions options = RealHelper();
        options.helperPath = *s_folder / how;
        if (!std::filesystem::exists(options.helperPath))
            std::filesystem::create_symlink(BAD_HELPER, options.helperPath);
        return options;
    }

    NothingLeft m_nothingLeft;
    static TempFolder* s_folder;
};

TempFolder* PoolTest::s_folder = nullptr;

TEST_F(PoolTest, AHelperThatMisbehavesCostsOneFileEach) {
    for (const char* how : {"dies", "crashes", "garbage", "empty", "no-files", "too-long", "tail",
                            "cut", "wrong-number", "unclean", "hangs"}) {
        const LogLines log;
        ExtractorOptions options = Bad(how);
        if (std::string(how) == "hangs") options.deadlineMs = 50;
        ExtractorPool pool(options);
        for (int i = 0; i < 3; ++i) {
            const ExtractResult result = ExtractPath(pool, Photo());
            EXPECT_EQ(result.status, ExtractStatus::Failed) << how;
            EXPECT_EQ(result.metadata.title, "") << how;
        }
        EXPECT_EQ(log.Count("IMG_0001.jpg"), 3u) << how;
        EXPECT_TRUE(ChildrenOf(getpid()).empty()) << how;
    }
}

TEST_F(PoolTest, AHelperThatAnswersMoreThanItWasAskedForIsNotBelievedTwice) {
    ExtractorPool pool(Bad("too-often"));
    EXPECT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Ok);
    EXPECT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Failed);
}

// Seventy files, two of which hang a helper: more than go to a helper at once.
TEST_F(PoolTest, ABadFileInABatchCostsOnlyItself) {
    ExtractorOptions options = Bad("hangs-at-13-bytes");
    options.deadlineMs = 500;
    options.idleHelpers = 2;
    const std::string bad = *s_folder / "bad.jpg";
    std::ofstream(bad) << "13 bytes long";
    std::vector<std::string> paths(70, Photo());
    paths[3] = paths[40] = bad;
    ExtractorPool pool(options);
    const std::vector<ExtractResult> results = ExtractPaths(pool, paths);
    ASSERT_EQ(results.size(), paths.size());
    for (size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i].status, paths[i] == bad ? ExtractStatus::Failed : ExtractStatus::Ok)
            << i;
    EXPECT_TRUE(ExtractPaths(pool, {}).empty());
}

TEST_F(PoolTest, AHelperThatEndedWhileIdleIsReplacedBeforeTheFileIsLost) {
    ExtractorPool pool(Bad("once"));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Ok);
        // Dead, and not yet waited for by the pool.
        for (const pid_t child : ChildrenOf(getpid())) {
            siginfo_t info = {};
            waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
        }
    }
}

TEST_F(PoolTest, ADescriptorInAnAnswerIsDropped) {
    ExtractorPool pool(Bad("gives-descriptor"));
    ASSERT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Ok);
    const NothingLeft more;
    EXPECT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Ok);
}

TEST_F(PoolTest, CancellingEndsTheWaitForAHelper) {
    ExtractorPool pool(Bad("hangs"));
    const UniqueFd file = OpenFile(Photo());
    std::atomic<bool> cancel{false};
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            EXPECT_EQ(
                pool.Extract(file.Get(), MEDIA_CONTENT_TYPE_IMAGE, "image/jpeg", cancel).status,
                ExtractStatus::Cancelled);
        });
    }
    EXPECT_TRUE(test::Until([] { return !ChildrenOf(getpid()).empty(); }));
    cancel = true;
    for (std::thread& caller : callers) caller.join();
    EXPECT_TRUE(ChildrenOf(getpid()).empty());
}

TEST_F(PoolTest, AProgramThatDoesNotStartIsLoggedOnceAndNotTriedForEachFile) {
    ExtractorOptions missing = RealHelper();
    missing.helperPath = *s_folder / "no-such-program";
    ExtractorOptions deaf = Bad("never-ready");
    deaf.startDeadlineMs = 50;
    for (const ExtractorOptions& options : {missing, deaf, Bad("dies-at-start")}) {
        const LogLines log;
        ExtractorPool pool(options);
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Unavailable);
        EXPECT_EQ(log.Count("cannot start the metadata helper"), 1u) << options.helperPath;
    }
}

TEST_F(PoolTest, OnlyRegularFilesAreSent) {
    ExtractorPool pool(RealHelper());
    const std::atomic<bool> cancel{false};
    const UniqueFd folder = OpenFile(s_folder->Path());
    const UniqueFd null = OpenFile("/dev/null");
    for (const int fd : {folder.Get(), null.Get(), -1})
        EXPECT_EQ(pool.Extract(fd, MEDIA_CONTENT_TYPE_IMAGE, "image/jpeg", cancel).status,
                  ExtractStatus::Failed);
    EXPECT_TRUE(ChildrenOf(getpid()).empty()) << "no helper was needed";
}

TEST_F(PoolTest, AHelperIsKeptReplacedInTimeAndEndedWhenAsked) {
    ExtractorOptions options = RealHelper();
    options.filesPerHelper = 2;
    ExtractorPool pool(options);
    ExtractPath(pool, Photo());
    const std::set<pid_t> first = ChildrenOf(getpid());
    EXPECT_EQ(first.size(), 1u);
    ExtractPath(pool, Photo());
    EXPECT_TRUE(ChildrenOf(getpid()).empty()) << "two files were its share";
    ExtractPath(pool, Photo());
    EXPECT_EQ(ChildrenOf(getpid()).size(), 1u);
    EXPECT_NE(ChildrenOf(getpid()), first);
    pool.EndIdleHelpers();
    EXPECT_TRUE(ChildrenOf(getpid()).empty());
}

TEST_F(PoolTest, AHelperHoldsNoDescriptorOfOursAndNoFileAfterItsAnswer) {
    const UniqueFd inheritable(dup(STDIN_FILENO));
    ExtractorPool pool(RealHelper());
    ASSERT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Ok);
    const std::set<pid_t> helpers = ChildrenOf(getpid());
    ASSERT_EQ(helpers.size(), 1u);
    EXPECT_EQ(test::ReadVitals(*helpers.begin()).descriptors, 4) << "three and the socket";
    const auto errorsOf = [](const std::string& process) {
        return std::filesystem::read_symlink("/proc/" + process + "/fd/2");
    };
#ifdef CM_SANITIZED
    const std::filesystem::path wanted = errorsOf("self");  // reports are to be seen
#else
    const std::filesystem::path wanted = "/dev/null";
#endif
    EXPECT_EQ(errorsOf(std::to_string(*helpers.begin())), wanted);
}

TEST_F(PoolTest, CallersHaveAHelperEachAndLeaveAFew) {
    ExtractorOptions options = RealHelper();
    options.idleHelpers = 2;
    options.filesPerHelper = 7;
    ExtractorPool pool(options);
    std::atomic<int> read{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            for (int file = 0; file < 10; ++file)
                for (const auto& result : ExtractPaths(pool, {Photo(), Photo()}))
                    read += result.metadata.width == 160;
        });
    }
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(read, 80);
    EXPECT_LE(ChildrenOf(getpid()).size(), 2u);
}

// One deadline for all, one for each of the first two files: then enough is lost, also for what
// else is on this account.
TEST_F(PoolTest, FilesAreGivenUpAfterAFewDeadlines) {
    ExtractorOptions options = Bad("hangs");
    options.deadlineMs = 50;
    ExtractorPool pool(options);
    std::atomic<int> toldSlow{0};
    LostTime lost([&] { ++toldSlow; });
    std::vector<ExtractResult> results = ExtractPaths(pool, {20, Photo()}, &lost);
    ASSERT_EQ(results.size(), 20u);
    for (size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i].status, i < 2 ? ExtractStatus::Failed : ExtractStatus::PassedOver);
    EXPECT_EQ(ExtractPaths(pool, {Photo()}, &lost)[0].status, ExtractStatus::PassedOver);
    EXPECT_EQ(toldSlow, 3);
    EXPECT_EQ(ExtractPath(pool, Photo()).status, ExtractStatus::Failed) << "on no account";
    lost.MakeUp(1000);
    EXPECT_EQ(lost.Milliseconds(), 0);
}

// The service killed while a helper hangs with a file: nothing is left.
TEST_F(PoolTest, HelpersDieWithTheServiceEvenWhileTheyHang) {
    std::vector<std::string> command(10'000, Photo());
    command[0] = EXTRACT_PRINT;
    test::Program service(command, *s_folder / "log");
    std::set<pid_t> helpers;
    const auto isAtWork = [&] {
        helpers = ChildrenOf(service.Pid());
        if (helpers.empty()) return false;
        std::ifstream file("/proc/" + std::to_string(*helpers.begin()) + "/status");
        const std::string status(std::istreambuf_iterator<char>(file), {});
        return status.find("NoNewPrivs:\t1") != std::string::npos;
    };
    EXPECT_TRUE(test::Until(isAtWork));
    ASSERT_EQ(helpers.size(), 1u);
    kill(*helpers.begin(), SIGSTOP);
    service.Signal(SIGKILL);
    service.Wait();
    EXPECT_TRUE(test::Until([&] {
        std::ifstream state("/proc/" + std::to_string(*helpers.begin()) + "/stat");
        std::string id, name, letter;
        return !(state >> id >> name >> letter) || letter == "Z";
    }));
}

}  // namespace
