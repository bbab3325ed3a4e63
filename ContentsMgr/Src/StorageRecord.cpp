#include "StorageRecord.h"

#include "PlatformText.h"

namespace dorn {
namespace {

// Copies one text of the device into the record.
void CopyText(CMediaStorage& storage, usb_device_s* device, int (*getter)(usb_device_s*, char**),
              void (CMediaStorage::*setter)(const char*)) {
    CM_PLATFORM_TEXT(text, getter, device);
    (storage.*setter)(text.Get());
}

// Copies one number; what cannot be read becomes `fallback`.
template <typename Value, typename Argument>
void CopyValue(CMediaStorage& storage, usb_device_s* device, int (*getter)(usb_device_s*, Value*),
               void (CMediaStorage::*setter)(Argument), Value fallback) {
    Value value = fallback;
    static_cast<void>(getter(device, &value));
    (storage.*setter)(value);
}

}  // namespace

void FillStorageFromDevice(CMediaStorage& storage, usb_device_s* device) {
    using S = CMediaStorage;
    CopyText(storage, device, usb_device_get_devname, &S::SetDeviceName);
    CopyValue(storage, device, usb_mass_storage_get_disk_type, &S::SetDiskType, DISK_TYPE_UNKNOWN);
    CopyText(storage, device, usb_device_get_manufacturer, &S::SetManufacturer);
    CopyValue(storage, device, usb_device_get_vendor_id, &S::SetVendorID, 0);
    CopyValue(storage, device, usb_mass_storage_get_filesystem_type, &S::SetFileSystem,
              FSTYPE_OTHER);
    CopyText(storage, device, usb_device_get_product, &S::SetModelName);
    CopyText(storage, device, usb_device_get_serial, &S::SetSerial);
    CopyText(storage, device, usb_device_get_mountpath, &S::SetMountPath);
    CopyText(storage, device, usb_device_get_partlabel, &S::SetPartitionLabel);
    CopyValue(storage, device, usb_device_get_address, &S::SetAddress, 0);
    CopyValue(storage, device, usb_device_get_bus, &S::SetBus, 0);
    CopyValue(storage, device, usb_device_get_class, &S::SetDeviceClass, USB_CLASS_ALL);
}

}  // namespace dorn
