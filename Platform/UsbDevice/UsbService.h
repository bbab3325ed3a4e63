// The USB service, as the process entry sees it. What the plugin sees is UsbDevice.h.
#ifndef PLATFORM_USB_DEVICE_USB_SERVICE_H
#define PLATFORM_USB_DEVICE_USB_SERVICE_H

#include <string>

namespace platform {

enum class UsbBackEnd { Udev, Directory };

struct UsbServiceOptions {
    UsbBackEnd backEnd = UsbBackEnd::Udev;
    // Where sticks are mounted: storages below it are recorded in the media database. To the
    // directory back end each folder in it is a stick.
    std::string root = "/opt/storage/usb";
    std::string mountTable = "/proc/self/mountinfo";
};

// Before the first usb_device_init of the process.
void ConfigureUsbService(const UsbServiceOptions& options);

// Stops watching whatever the count of users, and joins the service's threads.
void ShutdownUsbService();

}  // namespace platform

#endif
