// The one USB service of the process: its settings, its count of users, and what runs while there
// are any.
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

    // The results of the seam's calls of the same names. The first Init and the last Fini take as
    // long as the database needs; others wait for them.
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

    std::mutex m_lifecycle;  // guards the two below, held while starting and stopping
    UsbServiceOptions m_options;
    int m_users = 0;

    std::mutex m_mutex;  // guards the pointer alone; taken under m_lifecycle or by itself
    std::shared_ptr<DeviceMonitor> m_monitor;
};

}  // namespace platform

#endif
