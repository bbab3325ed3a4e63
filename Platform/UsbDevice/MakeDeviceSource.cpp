#include "UsbDevice/DeviceSource.h"
#include "UsbDevice/DirectorySource.h"
#include "UsbDevice/UdevSource.h"

namespace platform {

std::unique_ptr<DeviceSource> MakeDeviceSource(const UsbServiceOptions& options) {
    if (options.backEnd == UsbBackEnd::Udev)
        return std::make_unique<UdevSource>(options.root, options.mountTable);
    return std::make_unique<DirectorySource>(options.root, options.mountTable);
}

}  // namespace platform
