// The USB service, as seen by the process entry point. The plugin uses UsbDevice.h instead.
#ifndef PLATFORM_USB_DEVICE_USB_SERVICE_H
#define PLATFORM_USB_DEVICE_USB_SERVICE_H

#include <string>

namespace platform {

enum class UsbBackEnd { Udev, Directory };

struct UsbServiceOptions {
    UsbBackEnd backEnd = UsbBackEnd::Udev;
    // Where sticks are mounted: storages below it are recorded in the media database. The directory
    // back end treats each folder in it as a stick.
    std::string root = "/opt/storage/usb";
    std::string mountTable = "/proc/self/mountinfo";
};

// Must be called before the first usb_device_init of the process.
void ConfigureUsbService(const UsbServiceOptions& options);

// Stops watching whatever the user count, and joins the service's threads.
void ShutdownUsbService();

}  // namespace platform

#endif
