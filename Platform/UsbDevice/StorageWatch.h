// The watches on the folders of one storage, and the changes gathered from them.
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

// An inotify descriptor of its own for each storage: closing it ends all its watches, and two
// mounts of one file system do not take each other's. Belongs to the watcher's thread, except for
// Cancel.
class StorageWatch {
public:
    using Clock = std::chrono::steady_clock;

    explicit StorageWatch(std::string mountPath);

    // Any thread: the storage is going, whatever still runs for it is to end.
    void Cancel() { m_cancelled = true; }
    bool IsCancelled() const { return m_cancelled; }

    const std::string& MountPath() const { return m_mountPath; }
    int Get() const { return m_inotify.Get(); }

    // Watches the folders, on the first call only, and again where descriptors were short. What
    // changed in a folder after the storage came but before its watch was in place counts as a
    // change.
    void Begin();

    // Reads what is pending.
    void Drain();

    // Milliseconds until Flush has something to do; -1 for never.
    int MsUntilFlush() const;

    // Tells what has been gathered when its time has come.
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
    const timespec m_since;  // wall clock, as files carry it
    std::atomic<bool> m_cancelled{false};
    bool m_begun = false;
    bool m_incomplete = false;   // some folder has no watch: look at everything from time to time
    bool m_beginsAgain = false;  // at the next look at everything
    dev_t m_device = 0;
    UniqueFd m_inotify;
    std::map<int, std::string> m_folders;  // by watch

    std::set<std::string> m_paths;
    bool m_anything = false;    // too much changed to be named
    Clock::time_point m_first;  // of what is gathered
    Clock::time_point m_last;
    Clock::time_point m_lastRescan;
};

}  // namespace platform

#endif
