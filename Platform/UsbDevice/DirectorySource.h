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

// A key file `NAME.usb` beside the folder `NAME` supplies what the folder cannot; a key file
// without a folder is a camera. Hidden names and links are not devices. To apply from the start, a
// key file must be written before its folder is created.
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
