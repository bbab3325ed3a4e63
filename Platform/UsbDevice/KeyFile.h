// Key files: what a plain folder cannot tell of the stick that it stands for.
#ifndef PLATFORM_USB_DEVICE_KEY_FILE_H
#define PLATFORM_USB_DEVICE_KEY_FILE_H

#include <string>
#include <vector>

#include "UsbDevice/DeviceRecord.h"

namespace platform {

// Puts what the key file at `path` tells over what `device` holds. Keys of its one group [device]:
//   texts    vendor product serial label uuid device-name (escapes: \s \t \n \r \\ \xNN)
//   numbers  class vendor-id product-id bus address protocol partition (decimal or 0x...)
//   words    file-system (vfat exfat ext2 ext3 ext4 ntfs other)
//            disk-type (removable fixed optical unknown)
// A value that is none of these leaves the field as it was and is one complaint. False when the
// file as a whole is of no use (missing, no regular file, no key file): `device` is then as it was.
bool ReadKeyFile(const std::string& path, DeviceRecord& device,
                 std::vector<std::string>& complaints);

}  // namespace platform

#endif
