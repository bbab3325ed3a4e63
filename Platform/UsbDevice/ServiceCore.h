// The process's single USB service: its options, its user count, and what runs while there are
// users.
#ifndef PLATFORM_USB_DEVICE_SERVICE_CORE_H
#define PLATFORM_USB_DEVICE_SERVICE_CORE_H

#include <memory>
#include <mutex>

#include "UsbDevice/DeviceMonitor.h"
#include "UsbDevice/UsbService.h"

namespace platform {

// Every operation may be called from any thread.
class ServiceCore {
public:
    static ServiceCore& Instance();

    void Configure(const UsbServiceOptions& options);

    // These return the results of the seam's calls of the same names. The first Init and the last
    // Fini take as long as the database needs; concurrent calls wait for them.
    int Init();
    int Fini();
    void Shutdown();

    // The present devices of one class, or of all.
    int Devices(usb_class_e deviceClass, DeviceList& devices);

    ChangeDispatcher& Dispatcher() { return *m_dispatcher; }

private:
    ServiceCore() = default;
    std::shared_ptr<DeviceMonitor> Current();
    void SetCurrent(std::shared_ptr<DeviceMonitor> monitor);
    void StopLocked();

    const std::shared_ptr<ChangeDispatcher> m_dispatcher = std::make_shared<ChangeDispatcher>();

    std::mutex m_lifecycle;  // guards the two below; held while starting and stopping
    UsbServiceOptions m_options;
    int m_users = 0;

    std::mutex m_mutex;  // guards only the pointer; taken under m_lifecycle or alone
    std::shared_ptr<DeviceMonitor> m_monitor;
};

}  // namespace platform

#endif
