// The watches on the folders of one storage, and the changes collected from them.
#ifndef PLATFORM_USB_DEVICE_STORAGE_WATCH_H
#define PLATFORM_USB_DEVICE_STORAGE_WATCH_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <map>
#include <set>
#include <string>

#include "Process/UniqueFd.h"

struct inotify_event;

namespace platform {

// Each storage has its own inotify descriptor: closing it ends all its watches, and two mounts of
// one file system do not take each other's. Used by the watcher's thread only, except for Cancel.
class StorageWatch {
public:
    using Clock = std::chrono::steady_clock;

    explicit StorageWatch(std::string mountPath);

    // Thread-safe. The storage is going away: whatever still runs for it must end.
    void Cancel() { m_cancelled = true; }
    bool IsCancelled() const { return m_cancelled; }

    const std::string& MountPath() const { return m_mountPath; }
    int Get() const { return m_inotify.Get(); }

    // Watches the folders, on the first call, and again after descriptors were short. Anything that
    // changed in a folder after the storage was mounted but before its watch was in place counts as
    // a change.
    void Begin();

    // Reads what is pending.
    void Drain();

    // Milliseconds until Flush is due; -1 for never.
    int MsUntilFlush() const;

    // Reports what has been collected, if it is due.
    void Flush();

private:
    void WatchTree(const std::string& folder);
    bool WatchFolder(const std::string& folder);
    void Unwatch(const std::string& folder);
    void Take(const inotify_event& event);
    void TakeEntry(const std::string& path, uint32_t mask);
    void Note(const std::string& path);
    void NoteAnything();
    void FallBack(const char* reason);
    void FallBack(int error);
    void Tell();

    const std::string m_mountPath;
    const timespec m_since;  // wall clock time, as in file times
    std::atomic<bool> m_cancelled{false};
    bool m_begun = false;
    bool m_incomplete = false;   // some folder is unwatched: rescan everything periodically
    bool m_beginsAgain = false;  // at the next rescan
    dev_t m_device = 0;
    UniqueFd m_inotify;
    std::map<int, std::string> m_folders;  // by watch descriptor

    std::set<std::string> m_paths;
    bool m_anything = false;    // too many changes to list them
    Clock::time_point m_first;  // time of the first collected change
    Clock::time_point m_last;
    Clock::time_point m_lastRescan;
};

}  // namespace platform

#endif
