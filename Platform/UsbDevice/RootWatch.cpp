#include "UsbDevice/RootWatch.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Log/Log.h"

namespace platform {
namespace {

constexpr uint32_t kRootEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                 IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr uint32_t kAncestorEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                     IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// A folder that keeps changing meanwhile is checked again at the next event.
constexpr int kTurns = 10;

std::string ParentOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool Exists(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

}  // namespace

bool RootWatch::Open() {
    m_inotify = UniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!m_inotify)
        PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "cannot watch %s: %s", m_root.c_str(),
                     strerror(errno));
    return bool(m_inotify);
}

void RootWatch::Arm() {
    if (m_rootWatch >= 0 && IsCurrent()) return;
    Drop(m_rootWatch);
    bool settled = false;
    for (int turn = 0; !settled && turn < kTurns; ++turn) settled = WatchRoot() || WatchAncestor();
    if (m_rootWatch >= 0) Drop(m_ancestorWatch);
    if (!IsArmed() && !m_complained)
        PLATFORM_LOG("USB_DEVICE", LOG_WARNING,
                     "cannot watch %s: %s; looking at it from time to time instead", m_root.c_str(),
                     strerror(errno));
    m_complained = !IsArmed();
}

bool RootWatch::Drain() {
    alignas(inotify_event) char buffer[16 * 1024];
    bool changed = false;
    ssize_t got = 0;
    while ((got = read(m_inotify.Get(), buffer, sizeof buffer)) > 0) {
        for (const char* at = buffer; at < buffer + got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            changed = Take(*event) || changed;
            at += sizeof *event + event->len;
        }
    }
    return changed;
}

unsigned RootWatch::TimesGone(const std::string& name) const {
    const auto found = m_timesGone.find(name);
    return found == m_timesGone.end() ? 0 : found->second;
}

bool RootWatch::Take(const inotify_event& event) {
    if (event.mask & IN_Q_OVERFLOW) return true;
    if (event.wd == m_rootWatch) return TakeOfRoot(event);
    if (event.wd != m_ancestorWatch) return false;
    if (event.mask & IN_IGNORED) m_ancestorWatch = -1;
    return true;
}

bool RootWatch::TakeOfRoot(const inotify_event& event) {
    if (event.mask & IN_IGNORED) m_rootWatch = -1;
    if (event.mask & IN_MOVE_SELF) Drop(m_rootWatch);
    if (event.len == 0) return true;
    if (event.name[0] == '.') return false;
    if (event.mask & (IN_DELETE | IN_MOVED_FROM)) m_timesGone[event.name] = ++m_gone;
    return true;
}

// Whether the watched folder is still the one at that path. A mount over it, for example, changes
// that.
bool RootWatch::IsCurrent() const {
    struct stat status;
    return stat(m_root.c_str(), &status) == 0 && status.st_dev == m_device &&
           status.st_ino == m_inode;
}

bool RootWatch::WatchRoot() {
    m_rootWatch = inotify_add_watch(m_inotify.Get(), m_root.c_str(), kRootEvents);
    if (m_rootWatch < 0) return false;
    struct stat status;
    if (stat(m_root.c_str(), &status) != 0) return false;
    m_device = status.st_dev;
    m_inode = status.st_ino;
    return true;
}

// False when the ancestor cannot be watched, or when the path below it was created before the watch
// was in place: no event would report that.
bool RootWatch::WatchAncestor() {
    Drop(m_ancestorWatch);
    std::string awaited;
    std::string path = m_root;
    do {
        awaited = path;
        path = ParentOf(path);
        m_ancestorWatch = inotify_add_watch(m_inotify.Get(), path.c_str(), kAncestorEvents);
    } while (m_ancestorWatch < 0 && (errno == ENOENT || errno == ENOTDIR) && path != "/" &&
             path != ".");
    return m_ancestorWatch >= 0 && !Exists(awaited);
}

void RootWatch::Drop(int& watch) {
    if (watch >= 0) inotify_rm_watch(m_inotify.Get(), watch);
    watch = -1;
}

}  // namespace platform
