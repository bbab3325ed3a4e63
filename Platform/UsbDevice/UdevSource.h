// The back end for real hardware: libudev for the devices, the mount table for their file systems.
#ifndef PLATFORM_USB_DEVICE_UDEV_SOURCE_H
#define PLATFORM_USB_DEVICE_UDEV_SOURCE_H

#include <libudev.h>

#include <map>
#include <string>

#include "UsbDevice/DeviceSource.h"
#include "UsbDevice/MountTable.h"

namespace platform {

struct UdevUnref {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
    void operator()(udev_enumerate* enumerate) const { udev_enumerate_unref(enumerate); }
    void operator()(udev_device* device) const { udev_device_unref(device); }
};
template <typename T>
using UdevPtr = std::unique_ptr<T, UdevUnref>;

// A mass storage device is listed once for each of its block devices that has a mounted file
// system, a camera once for each USB device with a still image interface. An unmounted stick or
// card is not listed: clients could not read anything from it.
class UdevSource : public DeviceSource {
public:
    // Of several mounts of one file system the one below `root` is used.
    UdevSource(std::string root, const std::string& mountTable);

    bool Open() override;
    void AddDescriptors(std::vector<pollfd>& polled) const override;
    bool Drain() override;
    bool List(std::vector<DeviceRecord>& devices) override;
    bool IsMountPoint(const std::string& path) const override;
    bool NeedsPolling() const override { return false; }

private:
    bool DrainEvents();
    bool ListStorages(std::vector<DeviceRecord>& devices);
    bool ListCameras(std::vector<DeviceRecord>& devices);
    bool DescribeStorage(udev_device* block, DeviceRecord& device) const;
    const MountLine* MountOf(udev_device* block) const;
    int Preference(const MountLine& mount) const;
    std::string PresenceOf(udev_device* node) const;

    const std::string m_root;
    UdevPtr<udev> m_udev;
    UdevPtr<udev_monitor> m_monitor;
    MountTable m_mounts;
    unsigned m_gone = 0;
    std::map<std::string, unsigned> m_timesGone;  // removals by system path
};

// Decodes udev's \xNN escapes.
std::string UnescapeUdev(const std::string& text);

}  // namespace platform

#endif
