#include "UsbDevice/StorageWatch.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "Log/Log.h"
#include "MediaContent/MediaService.h"
#include "UsbDevice/Paths.h"

namespace platform {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuiet{500};
constexpr milliseconds kLongest{3000};
constexpr milliseconds kRescan{60000};
constexpr size_t kMostPaths = 1000;

constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE |
                             IN_ATTRIB | IN_ONLYDIR | IN_DONT_FOLLOW;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

timespec Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now;
}

// Inotify watches are shared with every other program of the user: one storage takes at most half.
size_t MostFolders() {
    size_t limit = 0;
    std::ifstream file("/proc/sys/fs/inotify/max_user_watches");
    if (!(file >> limit)) limit = 8192;  // every kernel allows this many
    return limit / 2;
}

bool IsBefore(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

// Hidden entries are not scanned, but the one that excludes its folder from the scan matters.
bool IsOfInterest(const char* name) {
    return name[0] != '.' || strcmp(name, ".nomedia") == 0;
}

bool MeansNoDescriptor(int error) {
    return error == EMFILE || error == ENFILE;
}

// Adds the visible folders in a folder, without links. The folder is closed on return. Returns an
// errno, 0 for success.
int AddFoldersIn(const std::string& folder, std::vector<std::string>& folders) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(folder.c_str()));
    if (!directory) return errno;
    while (const dirent* entry = readdir(directory.get())) {
        const bool maybe = entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN;
        if (maybe && entry->d_name[0] != '.') folders.push_back(folder + "/" + entry->d_name);
    }
    return 0;
}

bool HasOtherNames(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && status.st_nlink > 1;
}

}  // namespace

StorageWatch::StorageWatch(std::string mountPath)
    : m_mountPath(std::move(mountPath)), m_since(Now(CLOCK_REALTIME_COARSE)) {}

void StorageWatch::Begin() {
    if (m_begun || m_cancelled) return;
    m_begun = true;
    m_lastRescan = Clock::now();
    struct stat status;
    if (lstat(m_mountPath.c_str(), &status) != 0) return;
    m_device = status.st_dev;
    if (!m_inotify) m_inotify = UniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (m_inotify)
        WatchTree(m_mountPath);
    else
        FallBack(errno);
}

void StorageWatch::WatchTree(const std::string& folder) {
    std::vector<std::string> waiting{folder};
    while (!waiting.empty() && !m_cancelled && !m_incomplete) {
        const std::string next = std::move(waiting.back());
        waiting.pop_back();
        if (!WatchFolder(next)) continue;
        const int error = AddFoldersIn(next, waiting);
        if (MeansNoDescriptor(error)) FallBack(error);
    }
}

// The watch is added first: later changes produce an event, earlier ones show in the folder's time.
bool StorageWatch::WatchFolder(const std::string& folder) {
    struct stat status;
    if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        status.st_dev != m_device)
        return false;
    static const size_t most = MostFolders();
    if (m_folders.size() >= most) FallBack("more folders than one storage may have watched");
    if (m_incomplete) return false;
    const int watch = inotify_add_watch(m_inotify.Get(), folder.c_str(), kEvents);
    if (watch < 0 && errno == ENOSPC) FallBack(strerror(errno));
    if (watch < 0) return false;
    m_folders[watch] = folder;
    if (lstat(folder.c_str(), &status) == 0 && !IsBefore(status.st_mtim, m_since) &&
        !IsBefore(Now(CLOCK_REALTIME), status.st_mtim))
        Note(folder);
    return true;
}

void StorageWatch::Unwatch(const std::string& folder) {
    for (auto at = m_folders.begin(); at != m_folders.end();) {
        if (at->second == folder || IsStrictlyBelow(at->second, folder)) {
            inotify_rm_watch(m_inotify.Get(), at->first);
            at = m_folders.erase(at);
        } else {
            ++at;
        }
    }
}

void StorageWatch::Drain() {
    alignas(inotify_event) char buffer[16 * 1024];
    ssize_t got = 0;
    while (!m_cancelled && (got = read(m_inotify.Get(), buffer, sizeof buffer)) > 0) {
        for (const char* at = buffer; at < buffer + got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            Take(*event);
            at += sizeof *event + event->len;
        }
    }
}

void StorageWatch::Take(const inotify_event& event) {
    if (event.mask & IN_Q_OVERFLOW) {
        PLATFORM_LOG("USB_DEVICE", LOG_WARNING, "%s: too many changes at once, looking at it all",
                     m_mountPath.c_str());
        WatchTree(m_mountPath);
        NoteAnything();
        return;
    }
    const auto folder = m_folders.find(event.wd);
    if (folder == m_folders.end()) return;
    if (event.mask & IN_IGNORED)
        m_folders.erase(folder);
    else if (event.len > 0 && IsOfInterest(event.name))
        TakeEntry(folder->second + "/" + event.name, event.mask);
}

void StorageWatch::TakeEntry(const std::string& path, uint32_t mask) {
    const bool isFolder = mask & IN_ISDIR;
    if (isFolder && (mask & (IN_DELETE | IN_MOVED_FROM))) Unwatch(path);
    if (isFolder && (mask & (IN_CREATE | IN_MOVED_TO))) WatchTree(path);
    // A file that was just created is still being written; its close event tells when it is
    // complete. A new hard link to an existing file is complete at once.
    const bool isUnfinished = !isFolder && (mask & IN_CREATE) && !HasOtherNames(path);
    if (!isUnfinished) Note(path);
}

void StorageWatch::Note(const std::string& path) {
    m_last = Clock::now();
    if (m_paths.empty() && !m_anything) m_first = m_last;
    if (!m_anything) m_paths.insert(path);
    if (m_paths.size() > kMostPaths) NoteAnything();
}

void StorageWatch::NoteAnything() {
    m_last = Clock::now();
    if (m_paths.empty() && !m_anything) m_first = m_last;
    m_anything = true;
    m_paths.clear();
}

// Descriptors that are short now may be available at the next rescan.
void StorageWatch::FallBack(int error) {
    FallBack(strerror(error));
    m_beginsAgain = MeansNoDescriptor(error);
}

void StorageWatch::FallBack(const char* reason) {
    if (m_incomplete) return;
    m_incomplete = true;
    PLATFORM_LOG("USB_DEVICE", LOG_WARNING,
                 "%s: not every folder can be watched (%s); looking at it all once a minute",
                 m_mountPath.c_str(), reason);
}

int StorageWatch::MsUntilFlush() const {
    if (m_cancelled) return -1;
    Clock::time_point due = Clock::time_point::max();
    if (!m_paths.empty() || m_anything) due = std::min(m_last + kQuiet, m_first + kLongest);
    if (m_incomplete) due = std::min(due, m_lastRescan + kRescan);
    if (due == Clock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<milliseconds>(due - Clock::now()).count();
    return static_cast<int>(std::max<long>(left, 0));
}

void StorageWatch::Flush() {
    if (MsUntilFlush() != 0) return;
    if (m_incomplete && Clock::now() >= m_lastRescan + kRescan) {
        NoteAnything();
        if (m_beginsAgain) m_begun = m_incomplete = m_beginsAgain = false;
    }
    if (m_anything) m_lastRescan = Clock::now();
    Tell();
}

void StorageWatch::Tell() {
    std::vector<std::string> paths(m_paths.begin(), m_paths.end());
    m_paths.clear();
    m_anything = false;
    StorageContentChanged(m_mountPath, paths);
}

}  // namespace platform
