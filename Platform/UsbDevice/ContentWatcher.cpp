#include "UsbDevice/ContentWatcher.h"

#include <poll.h>

#include <algorithm>

#include "Process/ThreadCrew.h"
#include "UsbDevice/StorageWatch.h"

namespace platform {

// Without a wake-up descriptor the thread could not be stopped.
ContentWatcher::ContentWatcher() {
    if (m_wakeUp) m_thread = StartThread("usb-content", [this] { Run(); });
}

ContentWatcher::~ContentWatcher() {
    m_stopping = true;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const WatchPtr& watch : m_watches) watch->Cancel();
    }
    m_wakeUp.Wake();
    if (m_thread.joinable()) m_thread.join();
}

void ContentWatcher::Add(const std::string& mountPath) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_watches.push_back(std::make_shared<StorageWatch>(mountPath));
    m_wakeUp.Wake();
}

void ContentWatcher::Remove(const std::string& mountPath) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const WatchPtr& watch : m_watches)
        if (watch->MountPath() == mountPath) watch->Cancel();
    m_wakeUp.Wake();
}

void ContentWatcher::Run() {
    std::vector<WatchPtr> watches;
    while (!m_stopping) {
        TakeOver(watches);
        for (const WatchPtr& watch : watches) watch->Begin();
        WaitForEvents(watches);
        for (const WatchPtr& watch : watches) {
            if (watch->Get() >= 0) watch->Drain();
            watch->Flush();
        }
    }
}

// The watches in use now. Watches of storages that are gone are destroyed here, on the thread that
// uses them.
void ContentWatcher::TakeOver(std::vector<WatchPtr>& watches) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_watches.erase(std::remove_if(m_watches.begin(), m_watches.end(),
                                   [](const WatchPtr& watch) { return watch->IsCancelled(); }),
                    m_watches.end());
    watches = m_watches;
}

void ContentWatcher::WaitForEvents(const std::vector<WatchPtr>& watches) {
    std::vector<pollfd> polled{{m_wakeUp.Get(), POLLIN, 0}};
    int timeout = -1;
    for (const WatchPtr& watch : watches) {
        polled.push_back({watch->Get(), POLLIN, 0});
        const int wait = watch->MsUntilFlush();
        if (wait >= 0) timeout = timeout < 0 ? wait : std::min(timeout, wait);
    }
    if (poll(polled.data(), polled.size(), timeout) > 0 && polled[0].revents) m_wakeUp.Clear();
}

}  // namespace platform
