#include "MediaContent/Walk.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

namespace platform {
namespace {

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};

unsigned char TypeOf(int folder, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type;
    struct stat facts {};
    if (fstatat(folder, entry.d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) return DT_UNKNOWN;
    return static_cast<unsigned char>(IFTODT(facts.st_mode));
}

// For kernels and sandboxes without openat2: opens one component at a time, refusing links.
UniqueFd OpenStepwise(int root, const std::string& path, int flags) {
    UniqueFd at(openat(root, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    size_t begin = 0;
    while (at) {
        const size_t slash = path.find('/', begin);
        const std::string part = path.substr(begin, slash - begin);
        if (slash == std::string::npos)
            return UniqueFd(openat(at.Get(), part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
        at =
            UniqueFd(openat(at.Get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        begin = slash + 1;
    }
    return at;
}

bool HoldsNoMedia(int root, const std::string& folder) {
    const UniqueFd opened = OpenBelow(root, folder, O_PATH | O_DIRECTORY);
    struct stat facts {};
    return opened && fstatat(opened.Get(), ".nomedia", &facts, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace

UniqueFd OpenBelow(int root, const std::string& path, int flags) {
    if (path.empty()) return UniqueFd(openat(root, ".", flags | O_CLOEXEC));
    struct open_how how {};
    how.flags = static_cast<uint64_t>(flags | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV | RESOLVE_NO_MAGICLINKS;
    UniqueFd opened(static_cast<int>(syscall(SYS_openat2, root, path.c_str(), &how, sizeof how)));
    if (!opened && (errno == ENOSYS || errno == EPERM)) return OpenStepwise(root, path, flags);
    return opened;
}

bool MeansGone(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EXDEV;
}

int ReadFolder(const UniqueFd& folder, FolderContent& content) {
    UniqueFd copy(fcntl(folder.Get(), F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, FolderCloser> stream(copy ? fdopendir(copy.Get()) : nullptr);
    if (!stream) return errno;
    copy.Release();  // now owned by the stream
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        if (!entry) break;
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        content.empty = false;
        if (strcmp(entry->d_name, ".nomedia") == 0) content.noMedia = true;
        const unsigned char type = TypeOf(folder.Get(), *entry);
        if (type == DT_DIR)
            content.folders.push_back({entry->d_name, entry->d_ino});
        else if (type == DT_REG)
            content.files.push_back({entry->d_name, entry->d_ino});
    }
    const int error = errno;
    // Files created one after the other are mostly stored one after the other on the medium.
    const auto byInode = [](const FolderEntry& a, const FolderEntry& b) {
        return a.inode < b.inode;
    };
    std::sort(content.files.begin(), content.files.end(), byInode);
    return error;
}

bool IsExcluded(int root, const std::string& path) {
    if (HoldsNoMedia(root, "")) return true;
    for (size_t begin = 0; begin < path.size();) {
        const size_t slash = std::min(path.find('/', begin), path.size());
        if (path[begin] == '.' || HoldsNoMedia(root, path.substr(0, slash))) return true;
        begin = slash + 1;
    }
    return false;
}

}  // namespace platform
