// One USB device as both back ends describe it, and the seam's handles for it.
#ifndef PLATFORM_USB_DEVICE_DEVICE_RECORD_H
#define PLATFORM_USB_DEVICE_DEVICE_RECORD_H

#include <memory>
#include <string>
#include <vector>

#include "UsbDevice.h"

namespace platform {

// The mount path of a device without a mounted file system.
extern const char* const kNotMounted;

// Immutable once published. Texts are the device's own bytes.
struct DeviceRecord {
    int deviceClass = USB_CLASS_MASS_STORAGE;
    std::string deviceName;
    std::string manufacturer;
    std::string product;
    std::string serial;
    std::string mountPath = kNotMounted;
    std::string label;
    std::string uuid;  // of the file system
    int vendorId = 0;
    int productId = 0;
    int bus = 0;
    int address = 0;
    int protocol = 0;
    int number = 0;
    disktype_e diskType = DISK_TYPE_UNKNOWN;
    fstype_e fileSystem = FSTYPE_OTHER;
    // Distinguishes one presence of a device from the next: a stick pulled out and put back between
    // two checks differs in nothing but this.
    std::string presence;

    bool IsMounted() const { return mountPath != kNotMounted; }
    bool operator==(const DeviceRecord& other) const;
};

using DevicePtr = std::shared_ptr<const DeviceRecord>;
using DeviceList = std::vector<DevicePtr>;

// The seam's number for a file system's name ("vfat", "ext4", ...).
fstype_e FileSystemByName(const std::string& name);

}  // namespace platform

struct usb_device_s {
    platform::DevicePtr record;
};

// Owned by the caller of usb_device_get_device_list; must not be used by two threads at once.
struct usb_device_list_s {
    std::vector<usb_device_s> devices;
    size_t next = 0;
};

#endif
