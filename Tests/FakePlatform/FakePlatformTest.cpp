#include "FakePlatformTest.h"

#include <dirent.h>
#include <unistd.h>

namespace fake {

namespace {

int CountThreads() {
    int count = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (!tasks) return -1;
    while (const dirent* entry = readdir(tasks))
        if (entry->d_name[0] != '.') ++count;
    closedir(tasks);
    return count;
}

bool HasThread(pid_t id) {
    return access(("/proc/self/task/" + std::to_string(id)).c_str(), F_OK) == 0;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A sanitizer starts a thread of its own beside the process's first one. The first is over when
// this returns, also in the system's list.
static void StartFirstThread() {
    static const bool started = [] {
        pid_t id = 0;
        std::thread([&] { id = gettid(); }).join();
        return WaitUntil([&] { return !HasThread(id); });
    }();
    EXPECT_TRUE(started);
}

PlatformTest::PlatformTest() {
    platform.Reset();
    StartFirstThread();
    m_threads = CountThreads();
}

// A joined thread leaves the system's list a moment later, hence the wait.
bool PlatformTest::HasThreads(int count) const {
    return WaitUntil([&] { return CountThreads() == m_threads + count; });
}

void PlatformTest::TearDown() {
    std::map<std::string, int> kept;
    if (keptRecords > 0) kept["media_info_s"] = keptRecords;
    EXPECT_EQ(platform.LiveHandles(), kept) << "handles were not given back";
    EXPECT_EQ(platform.UsbReceivers(), 0) << "a USB receiver was left behind";
    platform.Reset();
    EXPECT_TRUE(HasThreads(0)) << "a thread was left behind";
}

}  // namespace fake
