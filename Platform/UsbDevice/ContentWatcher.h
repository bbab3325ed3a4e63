// Watches for changes that other programs make on mounted storages.
#ifndef PLATFORM_USB_DEVICE_CONTENT_WATCHER_H
#define PLATFORM_USB_DEVICE_CONTENT_WATCHER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "UsbDevice/WakeUp.h"

namespace platform {

class StorageWatch;

// One thread for all storages; it sleeps while nothing changes. Changes of one storage are
// collected until it has been quiet for half a second, or for three seconds at most, and passed to
// StorageContentChanged as one batch. Watches keep a folder open only while reading its names, so
// they do not prevent a storage from being unmounted.
class ContentWatcher {
public:
    ContentWatcher();
    ~ContentWatcher();                                         // ends the thread and joins it
    explicit operator bool() const { return bool(m_wakeUp); }  // false: it watches nothing

    // Both return at once; the watcher's thread walks the folders. Thread-safe.
    void Add(const std::string& mountPath);
    void Remove(const std::string& mountPath);

private:
    using WatchPtr = std::shared_ptr<StorageWatch>;

    void Run();
    void TakeOver(std::vector<WatchPtr>& watches);
    void WaitForEvents(const std::vector<WatchPtr>& watches);

    const WakeUp m_wakeUp;
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;  // guards the list
    std::vector<WatchPtr> m_watches;
    std::thread m_thread;
};

}  // namespace platform

#endif
