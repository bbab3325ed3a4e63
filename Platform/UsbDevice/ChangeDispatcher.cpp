#include "UsbDevice/ChangeDispatcher.h"

#include <algorithm>
#include <string>

#include "Process/ContextQueue.h"

namespace platform {

void ChangeDispatcher::Add(usb_connected_cb callback, void* userData) {
    const Receiver receiver{callback, userData};
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_receivers.begin(), m_receivers.end(), receiver) == m_receivers.end())
        m_receivers.push_back(receiver);
}

bool ChangeDispatcher::Remove(usb_connected_cb callback, void* userData) {
    const Receiver receiver{callback, userData};
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto found = std::find(m_receivers.begin(), m_receivers.end(), receiver);
    if (found == m_receivers.end()) return false;
    m_receivers.erase(found);
    m_idle.wait(lock, [&] {
        return !m_running || !(m_running->receiver == receiver) ||
               m_running->thread == std::this_thread::get_id();
    });
    return true;
}

void ChangeDispatcher::Post(const std::vector<DeviceChange>& changes) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const DeviceChange& change : changes)
        ContextQueue::Default().Post(
            [self = shared_from_this(), change, era = m_era] { self->Tell(change, era); });
}

void ChangeDispatcher::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_era;
}

void ChangeDispatcher::Tell(const DeviceChange& change, uint64_t era) {
    std::vector<Receiver> receivers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (era != m_era) return;
        receivers = m_receivers;
    }
    for (const Receiver& receiver : receivers) Deliver(receiver, change);
}

void ChangeDispatcher::Deliver(const Receiver& receiver, const DeviceChange& change) {
    if (!Begin(receiver)) return;
    usb_device_s device{change.device};
    std::string action = change.action;
    receiver.callback(&device, &action[0], receiver.userData);
    End();
}

// False when the receiver has been removed since the list was copied.
bool ChangeDispatcher::Begin(const Receiver& receiver) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (std::find(m_receivers.begin(), m_receivers.end(), receiver) == m_receivers.end())
        return false;
    m_running = std::make_unique<Running>(Running{receiver, std::this_thread::get_id()});
    return true;
}

void ChangeDispatcher::End() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_running.reset();
    m_idle.notify_all();
}

}  // namespace platform
