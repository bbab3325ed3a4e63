// Key files: the properties of a stick that a plain folder cannot express.
#ifndef PLATFORM_USB_DEVICE_KEY_FILE_H
#define PLATFORM_USB_DEVICE_KEY_FILE_H

#include <string>
#include <vector>

#include "UsbDevice/DeviceRecord.h"

namespace platform {

// Overwrites fields of `device` with the values of the key file at `path`. Keys of its only group
// [device]:
//   texts    vendor product serial label uuid device-name (escapes: \s \t \n \r \\ \xNN)
//   numbers  class vendor-id product-id bus address protocol partition (decimal or 0x...)
//   words    file-system (vfat exfat ext2 ext3 ext4 ntfs other)
//            disk-type (removable fixed optical unknown)
// An invalid value leaves its field unchanged and adds one complaint. False when the file as a
// whole is unusable (missing, not a regular file, not a key file): `device` is then unchanged.
bool ReadKeyFile(const std::string& path, DeviceRecord& device,
                 std::vector<std::string>& complaints);

}  // namespace platform

#endif
