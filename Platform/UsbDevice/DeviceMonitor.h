// Keeps the list of present devices up to date while the service is in use.
#ifndef PLATFORM_USB_DEVICE_DEVICE_MONITOR_H
#define PLATFORM_USB_DEVICE_DEVICE_MONITOR_H

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "UsbDevice/ChangeDispatcher.h"
#include "UsbDevice/ContentWatcher.h"
#include "UsbDevice/DeviceSource.h"
#include "UsbDevice/WakeUp.h"

namespace platform {

// The order of notification for each change:
//   a storage that comes  database record, then the device list, then the receivers, then its scan
//   a storage that goes   device list, then the database, then, once unmounted, the receivers
// so that anybody who hears of a storage, or lists it, finds its record.
class DeviceMonitor {
public:
    // `root`: storages mounted below it are recorded in the media database, others are only listed.
    DeviceMonitor(std::unique_ptr<DeviceSource> source, std::string root,
                  std::shared_ptr<ChangeDispatcher> dispatcher);
    ~DeviceMonitor();

    // Lists the devices, records their storages and starts the monitor thread. Notifies no
    // receiver: these devices were there before. False when the devices cannot be listed.
    bool Start();

    // Ends the thread and reports the storages to the database as unmounted. Notifies no receiver.
    void Stop();

    // The devices found by the last check; false when that check failed. Thread-safe, never blocks
    // for long.
    bool Devices(DeviceList& devices) const;

private:
    void Run();
    bool WaitForEvents(int timeoutMs);
    int Timeout() const;
    bool Look(std::vector<DeviceChange>& changes);
    void NoteRoom(bool room);
    void Tell(const std::vector<DeviceChange>& changes);
    void Scan(const DeviceRecord& device);
    bool IsHeld(size_t index) const;
    void Apply(const DeviceList& seen, std::vector<DeviceChange>& changes);
    void Publish(DeviceList devices);
    bool IsRecorded(const DeviceRecord& device) const;
    void TellArrived(const DeviceRecord& device);
    void TellGone(const DeviceRecord& device);

    // constant after construction
    const std::unique_ptr<DeviceSource> m_source;  // used by one thread at a time
    const std::string m_root;
    const std::shared_ptr<ChangeDispatcher> m_dispatcher;

    std::unique_ptr<ContentWatcher> m_contentWatcher = std::make_unique<ContentWatcher>();
    const WakeUp m_wakeUp;
    std::atomic<bool> m_stopping{false};
    bool m_isShort = false;  // checking thread only: the last check was short of descriptors
    // Monitor thread only: departures of storages that are still mounted, and later changes held
    // behind them.
    struct Untold {
        DeviceChange change;
        std::chrono::steady_clock::time_point until;
    };
    std::deque<Untold> m_untold;
    std::thread m_thread;

    mutable std::mutex m_mutex;  // guards the two below; only the monitor thread writes them
    DeviceList m_devices;
    bool m_lookFailed = false;
};

}  // namespace platform

#endif
