// The USB mount root, as the device and as clients name it.
#ifndef CONTENTS_MGR_USB_ROOT_H
#define CONTENTS_MGR_USB_ROOT_H

namespace dorn {

constexpr char kUsbRoot[] = "/opt/storage/usb";
constexpr char kUsbRootToken[] = "$USB_DIR";
constexpr char kUsbMediaRoot[] = "/opt/storage/usb/";  // media is below it, never directly at it
constexpr char kNoMountPath[] = "n/a";  // the mount path of a device without file system

}  // namespace dorn

#endif
