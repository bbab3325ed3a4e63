#include "UsbDevice/ChangeDispatcher.h"

#include <glib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>

#include "MediaContent/MediaService.h"

namespace platform {

// What a source holds. It reaches its thread through GLib's queue; the store and the load of
// `filled` say in the language's own terms that the one thread's writing comes before the other's
// reading.
struct ChangeDispatcher::Holder {
    std::shared_ptr<ChangeDispatcher> dispatcher;
    std::atomic<bool> filled{false};
};

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
    m_queue.insert(m_queue.end(), changes.begin(), changes.end());
    if (!m_queue.empty() && !m_scheduled) ScheduleLocked();
}

void ChangeDispatcher::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_queue.clear();
}

void ChangeDispatcher::ScheduleLocked() {
    m_scheduled = true;
    auto holder = std::make_unique<Holder>();
    holder->dispatcher = shared_from_this();
    holder->filled.store(true, std::memory_order_release);
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, OnMainContext, holder.release(), ReleaseHolder);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

// One change a turn, so that the context's other sources are not starved by a long queue.
int ChangeDispatcher::OnMainContext(void* data) {
    const auto* holder = static_cast<Holder*>(data);
    if (!holder->filled.load(std::memory_order_acquire)) return G_SOURCE_CONTINUE;
    return holder->dispatcher->DispatchOne() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void ChangeDispatcher::ReleaseHolder(void* holder) {
    std::unique_ptr<Holder>(static_cast<Holder*>(holder));
}

// True while more is queued.
bool ChangeDispatcher::DispatchOne() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_queue.empty()) {
        const DeviceChange change = m_queue.front();
        m_queue.pop_front();
        const std::vector<Receiver> receivers = m_receivers;
        lock.unlock();
        for (const Receiver& receiver : receivers) Deliver(receiver, change);
        if (strcmp(change.action, "mounted") == 0) StorageAnnounced(change.device->mountPath);
        lock.lock();
    }
    m_scheduled = !m_queue.empty();
    return m_scheduled;
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
