// Watches one folder, which need not exist, for entries that come and go.
#ifndef PLATFORM_USB_DEVICE_ROOT_WATCH_H
#define PLATFORM_USB_DEVICE_ROOT_WATCH_H

#include <sys/types.h>

#include <map>
#include <string>

#include "Process/UniqueFd.h"

struct inotify_event;

namespace platform {

// While the folder is missing, its nearest existing ancestor is watched instead. Used by one thread
// at a time.
class RootWatch {
public:
    explicit RootWatch(std::string root) : m_root(std::move(root)) {}

    // False, with a log line, when the system refuses.
    bool Open();
    int Get() const { return m_inotify.Get(); }

    // Watches the folder as it is now. Call this before each check of the folder: any later change
    // produces an event.
    void Arm();

    // False while system limits leave nothing to wait for.
    bool IsArmed() const { return m_rootWatch >= 0 || m_ancestorWatch >= 0; }

    // Reads what is pending. True when visible entries may have changed.
    bool Drain();

    // How often an entry of that name has been removed, as far as it is remembered: an entry that
    // is deleted and recreated between two checks gets another number.
    unsigned TimesGone(const std::string& name) const;

    // Forgets names that are no longer in use.
    template <typename Predicate>
    void Forget(Predicate unused) {
        for (auto at = m_timesGone.begin(); at != m_timesGone.end();)
            at = unused(at->first) ? m_timesGone.erase(at) : std::next(at);
    }

private:
    bool Take(const inotify_event& event);
    bool TakeOfRoot(const inotify_event& event);
    bool IsCurrent() const;
    bool WatchRoot();
    bool WatchAncestor();
    void Drop(int& watch);

    const std::string m_root;
    UniqueFd m_inotify;
    int m_rootWatch = -1;
    int m_ancestorWatch = -1;
    bool m_complained = false;  // already logged: a root that cannot be watched may stay so
    dev_t m_device = 0;         // of the folder watched by m_rootWatch
    ino_t m_inode = 0;
    unsigned m_gone = 0;
    std::map<std::string, unsigned> m_timesGone;
};

}  // namespace platform

#endif
