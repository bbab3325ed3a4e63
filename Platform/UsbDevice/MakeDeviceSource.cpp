#include "UsbDevice/DeviceSource.h"
#include "UsbDevice/DirectorySource.h"

namespace platform {

std::unique_ptr<DeviceSource> MakeDeviceSource(const UsbServiceOptions& options) {
    return std::make_unique<DirectorySource>(options.root, options.mountTable);
}

}  // namespace platform
