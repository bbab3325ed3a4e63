// The back end for machines without USB hardware: every folder directly below the root is a stick.
#ifndef PLATFORM_USB_DEVICE_DIRECTORY_SOURCE_H
#define PLATFORM_USB_DEVICE_DIRECTORY_SOURCE_H

#include <string>

#include "UsbDevice/DeviceSource.h"

namespace platform {

class DirectorySource : public DeviceSource {
public:
    explicit DirectorySource(std::string root);

    bool Open() override;
    void AddDescriptors(std::vector<pollfd>& polled) const override;
    bool Drain() override;
    bool List(std::vector<DeviceRecord>& devices) override;

private:
    const std::string m_root;
};

}  // namespace platform

#endif
