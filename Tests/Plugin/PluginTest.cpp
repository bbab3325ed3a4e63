#include "PluginTest.h"

#include <dirent.h>
#include <dlfcn.h>
#include <stdlib.h>

#include <atomic>
#include <cerrno>

namespace test {
namespace {

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

std::atomic<bool> tooLongName{false};

EXPOSE(Jobs, dorn::CSafeQ<dorn::CCMTaskJob>, m_jobs);
EXPOSE(JobSemaphore, SemphoreCM, m_jobSemaphore);
EXPOSE(Storages, CPlivTaskContentsMgr::StorageList, m_storages);
EXPOSE(StorageMutex, OwnGMutex, m_storageMutex);

}  // namespace

dorn::CSafeQ<dorn::CCMTaskJob>& JobsOf(CPlivTaskContentsMgr& task) {
    return task.*Reveal(Jobs());
}
SemphoreCM& JobSemaphoreOf(CPlivTaskContentsMgr& task) {
    return task.*Reveal(JobSemaphore());
}
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

TempFolder::TempFolder() {
    std::string path = (std::filesystem::temp_directory_path() / "plugin-test-XXXXXX").string();
    if (!mkdtemp(&path[0])) throw std::runtime_error("no temporary folder");
    m_path = path;
}

}  // namespace test

// In the place of the C library's, which it calls.
extern "C" int readdir_r(DIR* directory, dirent* entry, dirent** result) {
    static const auto real =
        reinterpret_cast<int (*)(DIR*, dirent*, dirent**)>(dlsym(RTLD_NEXT, "readdir_r"));
    const int error = real(directory, entry, result);
    return error == 0 && !*result && test::tooLongName ? ENAMETOOLONG : error;
}
