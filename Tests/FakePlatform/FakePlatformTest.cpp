#include "FakePlatformTest.h"

#include <dirent.h>

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

}  // namespace

bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

PlatformTest::PlatformTest() {
    platform.Reset();
    m_threads = CountThreads();
}

// A joined thread leaves the system's list a moment later, hence the wait.
bool PlatformTest::HasThreads(int count) const {
    return WaitUntil([&] { return CountThreads() == m_threads + count; });
}

void PlatformTest::TearDown() {
    std::map<std::string, int> kept;
    if (keptRecords > 0) kept["media"] = keptRecords;
    EXPECT_EQ(platform.LiveHandles(), kept) << "handles were not given back";
    EXPECT_EQ(platform.UsbReceivers(), 0) << "a USB receiver was left behind";
    platform.Reset();
    EXPECT_TRUE(HasThreads(0)) << "a thread was left behind";
}

}  // namespace fake
