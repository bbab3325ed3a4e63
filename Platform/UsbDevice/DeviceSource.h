// The interface of a back end: it lists the devices present, and provides descriptors that signal
// when to check again. Comparing lists, updating the database and calling receivers is the
// service's work and the same for every back end.
#ifndef PLATFORM_USB_DEVICE_DEVICE_SOURCE_H
#define PLATFORM_USB_DEVICE_DEVICE_SOURCE_H

#include <poll.h>

#include <memory>
#include <vector>

#include "UsbDevice/DeviceRecord.h"
#include "UsbDevice/UsbService.h"

namespace platform {

// Opened and first listed by one thread, then handed to the monitor thread; never used by two
// threads at once.
class DeviceSource {
public:
    virtual ~DeviceSource() = default;

    // Starts watching, so that no later event is missed. False, with a log line, when the system
    // refuses.
    virtual bool Open() = 0;

    // Adds the descriptors to poll. They may change after each Drain or List.
    virtual void AddDescriptors(std::vector<pollfd>& polled) const = 0;

    // Reads whatever is pending, without blocking. True when the devices may have changed.
    virtual bool Drain() = 0;

    // The devices present now. A device that vanishes while it is being read is left out. False
    // when the list as a whole could not be read; `devices` must then not be used.
    virtual bool List(std::vector<DeviceRecord>& devices) = 0;

    // True when something was mounted at that path at the time of the last List, whether or not its
    // device is still there.
    virtual bool IsMountPoint(const std::string& path) const = 0;

    // True while system limits prevent it from reporting changes: check periodically instead.
    virtual bool NeedsPolling() const = 0;
};

std::unique_ptr<DeviceSource> MakeDeviceSource(const UsbServiceOptions& options);

}  // namespace platform

#endif
