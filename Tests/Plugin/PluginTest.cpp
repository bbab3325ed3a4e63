#include "PluginTest.h"

#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>

namespace test {
namespace {

namespace fs = std::filesystem;

// The language lets an explicit instantiation name private members.
template <typename Tag, typename Tag::Member Pointer>
struct Expose {
    friend typename Tag::Member Reveal(Tag) { return Pointer; }
};

#define EXPOSE(tag, type, member)                    \
    struct tag {                                     \
        using Member = type CPlivTaskContentsMgr::*; \
        friend Member Reveal(tag);                   \
    };                                               \
    template struct Expose<tag, &CPlivTaskContentsMgr::member>

EXPOSE(Storages, CPlivTaskContentsMgr::StorageList, m_storages);
EXPOSE(StorageMutex, OwnGMutex, m_storageMutex);

std::atomic<bool> tooLongName{false};

int CountThreads() {
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/task"), {}));
}

// A sanitizer starts a thread of its own beside the process's first one. The first is over when
// this returns, also in the system's list.
void StartFirstThread() {
    static const bool started = [] {
        pid_t id = 0;
        std::thread([&] { id = gettid(); }).join();
        return Until([&] { return !fs::exists("/proc/self/task/" + std::to_string(id)); });
    }();
    EXPECT_TRUE(started);
}

}  // namespace

CPlivTaskContentsMgr::StorageList& StoragesOf(CPlivTaskContentsMgr& task) {
    return task.*Reveal(Storages());
}
GMutex& StorageMutexOf(CPlivTaskContentsMgr& task) {
    return task.*Reveal(StorageMutex());
}

TooLongName::TooLongName() {
    tooLongName = true;
}
TooLongName::~TooLongName() {
    tooLongName = false;
}

PluginTest::PluginTest() {
    platform.Reset();
    dorn::SetPauseUnit(std::chrono::milliseconds(5));
    StartFirstThread();
    m_threads = CountThreads();
}

// A joined thread leaves the system's list a moment later, hence the wait.
bool PluginTest::HasThreads(int count) const {
    return Until([&] { return CountThreads() == m_threads + count; });
}

void PluginTest::TearDown() {
    for (const Event& event : platform.Events())
        EXPECT_EQ(event.kind, event.name.find("USB_") == 0 ? 0 : 1) << event.name;
    EXPECT_EQ(platform.LiveHandles(), keptRecords) << "handles were not given back";
    EXPECT_EQ(platform.UsbReceivers(), 0) << "a USB receiver was left behind";
    platform.Reset();
    EXPECT_TRUE(HasThreads(0)) << "a thread was left behind";
}

}  // namespace test

// In the place of the C library's, which it calls.
extern "C" int readdir_r(DIR* directory, dirent* entry, dirent** result) {
    static const auto real =
        reinterpret_cast<int (*)(DIR*, dirent*, dirent**)>(dlsym(RTLD_NEXT, "readdir_r"));
    const int error = real(directory, entry, result);
    return error == 0 && !*result && test::tooLongName ? ENAMETOOLONG : error;
}
