#include "UsbDevice/DeviceMonitor.h"

#include <algorithm>
#include <chrono>

#include "Log/Log.h"
#include "MediaContent/MediaService.h"
#include "Process/Descriptors.h"
#include "Process/ThreadCrew.h"
#include "UsbDevice/Paths.h"

namespace platform {
namespace {

// Plugging in one stick causes a handful of events. A check waits until no event has arrived for
// the quiet time, but never longer than the longest wait.
constexpr int kQuietMs = 30;
constexpr int kLongestWaitMs = 300;
// After a failed check no event may signal that the next one would succeed.
constexpr int kRetryMs = 5000;
// When descriptors were short, since no event signals that some are free again.
constexpr int kRoomMs = 500;
// A device goes before its mount. Receivers hear of it when both are gone, or after this time if
// nobody unmounts: the size of the mount path would still be the stick's until then.
constexpr std::chrono::seconds kUnmountTime(5);
// The number of descriptors that a check opens at once. If it ran short of them it would read a
// device partially, or not at all, and take it for another one or for gone.
constexpr int kLookDescriptors = 4;

using Clock = std::chrono::steady_clock;

int MsUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::max<long>(left, 0));
}

bool Holds(const DeviceList& devices, const DeviceRecord& device) {
    return std::any_of(devices.begin(), devices.end(),
                       [&](const DevicePtr& other) { return *other == device; });
}

const char* ArrivalWord(const DeviceRecord& device) {
    return device.IsMounted() ? "mounted" : "added";
}

const char* DepartureWord(const DeviceRecord& device) {
    return device.IsMounted() ? "blocked" : "removed";
}

// Storages are logged by the media database.
void LogCamera(const DeviceChange& change) {
    const DeviceRecord& device = *change.device;
    if (device.deviceClass == USB_CLASS_STILL_IMAGE)
        PLATFORM_LOG("USB_DEVICE", LOG_INFO, "camera \"%s\" is %s", device.product.c_str(),
                     change.action == ArrivalWord(device) ? "connected" : "gone");
}

MountedStorage StorageOf(const DeviceRecord& device) {
    MountedStorage storage;
    storage.uuid = device.uuid;
    storage.serial = device.serial;
    storage.partition = device.number;
    storage.label = device.label;
    storage.mountPath = device.mountPath;
    return storage;
}

}  // namespace

DeviceMonitor::DeviceMonitor(std::unique_ptr<DeviceSource> source, std::string root,
                             std::shared_ptr<ChangeDispatcher> dispatcher)
    : m_source(std::move(source)), m_root(std::move(root)), m_dispatcher(std::move(dispatcher)) {}

DeviceMonitor::~DeviceMonitor() {
    Stop();
}

bool DeviceMonitor::Start() {
    std::vector<DeviceChange> present;
    if (!m_wakeUp || !*m_contentWatcher || !m_source->Open() || !Look(present)) return false;
    for (const DevicePtr& device : m_devices) Scan(*device);
    m_thread = StartThread("usb-monitor", [this] { Run(); });
    return true;
}

void DeviceMonitor::Stop() {
    if (!m_thread.joinable()) return;
    m_stopping = true;
    m_wakeUp.Wake();
    m_thread.join();
    std::vector<DeviceChange> gone;
    Apply({}, gone);
    m_contentWatcher.reset();
}

bool DeviceMonitor::Devices(DeviceList& devices) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_lookFailed) return false;
    devices = m_devices;
    return true;
}

void DeviceMonitor::Run() {
    while (!m_stopping) {
        const bool retry = !WaitForEvents(Timeout());
        for (int waited = 0; !retry && waited < kLongestWaitMs; waited += kQuietMs)
            if (!WaitForEvents(kQuietMs)) break;
        std::vector<DeviceChange> changes;
        if (!m_stopping && Look(changes)) Tell(changes);
    }
}

// A later change at the same path waits behind the departure, or shows that it is complete.
bool DeviceMonitor::IsHeld(size_t index) const {
    const Untold& untold = m_untold[index];
    const std::string& path = untold.change.device->mountPath;
    const auto isSamePath = [&](const Untold& later) {
        return later.change.device->mountPath == path;
    };
    const auto next = m_untold.begin() + static_cast<ptrdiff_t>(index) + 1;
    return Clock::now() < untold.until && m_source->IsMountPoint(path) &&
           std::none_of(next, m_untold.end(), isSamePath);
}

void DeviceMonitor::Tell(const std::vector<DeviceChange>& changes) {
    const auto now = Clock::now();
    for (const DeviceChange& change : changes) {
        LogCamera(change);
        const bool waits = std::string(change.action) == DepartureWord(*change.device) &&
                           change.device->IsMounted();
        m_untold.push_back({change, waits ? now + kUnmountTime : now});
    }
    std::vector<DeviceChange> told;
    std::deque<Untold> held;
    for (size_t i = 0; i < m_untold.size(); ++i) {
        if (IsHeld(i))
            held.push_back(m_untold[i]);
        else
            told.push_back(m_untold[i].change);
    }
    m_untold = std::move(held);
    m_dispatcher->Post(told);
    // Not earlier: anybody who hears of a scan's end must have heard of its storage before.
    for (const DeviceChange& change : told)
        if (change.action == ArrivalWord(*change.device)) Scan(*change.device);
}

void DeviceMonitor::Scan(const DeviceRecord& device) {
    if (IsRecorded(device)) StorageContentChanged(device.mountPath, {});
}

int DeviceMonitor::Timeout() const {
    if (m_isShort) return kRoomMs;
    if (!m_untold.empty()) return MsUntil(m_untold.front().until);
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lookFailed || m_source->NeedsPolling() ? kRetryMs : -1;
}

// True when the devices may have changed (or the service is stopping), false on time-out.
// Irrelevant events do not extend the wait.
bool DeviceMonitor::WaitForEvents(int timeoutMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!m_stopping) {
        std::vector<pollfd> polled{{m_wakeUp.Get(), POLLIN, 0}};
        m_source->AddDescriptors(polled);
        const int left = timeoutMs < 0 ? -1 : MsUntil(end);
        const int ready = poll(polled.data(), polled.size(), left);
        if (ready > 0 && m_source->Drain()) return true;
        if (left == 0) return false;
    }
    return true;
}

// Checks the devices and applies what has changed. Postponed when descriptors are short.
bool DeviceMonitor::Look(std::vector<DeviceChange>& changes) {
    std::vector<DeviceRecord> records;
    const bool roomBefore = HasSpareDescriptors(kLookDescriptors);
    const bool listed = roomBefore && m_source->List(records);
    const bool room = roomBefore && HasSpareDescriptors(kLookDescriptors);
    NoteRoom(room);
    if (!room) return false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lookFailed = !listed;
    }
    if (!listed) return false;
    DeviceList seen;
    for (DeviceRecord& record : records)
        seen.push_back(std::make_shared<const DeviceRecord>(std::move(record)));
    Apply(seen, changes);
    return true;
}

void DeviceMonitor::NoteRoom(bool room) {
    if (!room && !m_isShort)
        PLATFORM_LOG("USB_DEVICE", LOG_WARNING,
                     "descriptors are short: what has come or gone shows when there are some");
    m_isShort = !room;
}

void DeviceMonitor::Apply(const DeviceList& seen, std::vector<DeviceChange>& changes) {
    const DeviceList before = m_devices;
    DeviceList kept;
    for (const DevicePtr& device : before) {
        if (Holds(seen, *device))
            kept.push_back(device);
        else
            changes.push_back({device, DepartureWord(*device)});
    }
    if (!changes.empty()) Publish(kept);
    for (const DeviceChange& gone : changes) TellGone(*gone.device);

    bool arrived = false;
    for (const DevicePtr& device : seen) {
        if (Holds(before, *device)) continue;
        TellArrived(*device);
        changes.push_back({device, ArrivalWord(*device)});
        arrived = true;
    }
    if (arrived) Publish(seen);
}

void DeviceMonitor::Publish(DeviceList devices) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_devices = std::move(devices);
}

bool DeviceMonitor::IsRecorded(const DeviceRecord& device) const {
    return device.deviceClass == USB_CLASS_MASS_STORAGE && device.IsMounted() &&
           IsStrictlyBelow(device.mountPath, m_root);
}

void DeviceMonitor::TellArrived(const DeviceRecord& device) {
    if (!IsRecorded(device)) return;
    // The watch starts before the scan: changes made during the scan are not missed.
    m_contentWatcher->Add(device.mountPath);
    StorageMounted(StorageOf(device));
}

void DeviceMonitor::TellGone(const DeviceRecord& device) {
    if (!IsRecorded(device)) return;
    m_contentWatcher->Remove(device.mountPath);
    StorageUnmounted(device.mountPath);
}

}  // namespace platform
