// The back end for machines without USB hardware: every folder directly below the root is a stick.
#ifndef PLATFORM_USB_DEVICE_DIRECTORY_SOURCE_H
#define PLATFORM_USB_DEVICE_DIRECTORY_SOURCE_H

#include <map>
#include <string>

#include "UsbDevice/DeviceSource.h"
#include "UsbDevice/MountTable.h"
#include "UsbDevice/RootWatch.h"

struct stat;

namespace platform {

// A key file `NAME.usb` beside the folder `NAME` tells what the folder cannot; one that stands
// alone is a camera. Hidden names and links are no devices. A key file that is to hold from the
// start is written before its folder is made.
class DirectorySource : public DeviceSource {
public:
    DirectorySource(std::string root, const std::string& mountTable);

    bool Open() override;
    void AddDescriptors(std::vector<pollfd>& polled) const override;
    bool Drain() override;
    bool List(std::vector<DeviceRecord>& devices) override;
    // A folder that is no longer listed is gone.
    bool IsMountPoint(const std::string&) const override { return false; }
    bool NeedsPolling() const override { return !m_watch.IsArmed(); }

private:
    void AddFolder(const std::string& name, const struct stat& status,
                   std::vector<DeviceRecord>& devices);
    void AddLone(const std::string& name, std::vector<DeviceRecord>& devices);
    bool ReadKeys(const std::string& name, DeviceRecord& device);
    std::string PathOf(const std::string& name) const { return m_root + "/" + name; }

    const std::string m_root;
    MountTable m_mounts;  // a file system mounted over a folder is another stick
    RootWatch m_watch;
    bool m_unreadable = false;                                     // logged already
    std::map<std::string, std::vector<std::string>> m_complaints;  // already logged, by key file
};

}  // namespace platform

#endif
