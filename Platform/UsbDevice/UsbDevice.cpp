// The seam's calls over the service.
#include "UsbDevice.h"

#include <cstring>
#include <memory>
#include <new>

#include "UsbDevice/ServiceCore.h"

using platform::DeviceRecord;
using platform::ServiceCore;

namespace {

// Never null on success: the seam promises an empty text for a missing one.
int CopyText(const std::string& text, char** output) {
    char* copy = strdup(text.c_str());
    if (!copy) return USB_DEVICE_ERROR_OUT_OF_MEMORY;
    *output = copy;
    return USB_DEVICE_ERROR_NONE;
}

int GetText(const usb_device_s* device, std::string DeviceRecord::*field, char** output) {
    if (!device || !output) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    return CopyText((*device->record).*field, output);
}

template <typename Output, typename Field>
int GetValue(const usb_device_s* device, Field DeviceRecord::*field, Output* output) {
    if (!device || !output) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    *output = static_cast<Output>((*device->record).*field);
    return USB_DEVICE_ERROR_NONE;
}

int WalkFrom(usb_device_list_s* list, size_t index, usb_device_s** device) {
    if (index >= list->devices.size()) return USB_DEVICE_ERROR_NO_DEVICE;
    *device = &list->devices[index];
    list->next = index + 1;
    return USB_DEVICE_ERROR_NONE;
}

}  // namespace

extern "C" {

int usb_device_init(void) {
    return ServiceCore::Instance().Init();
}

int usb_device_fini(void) {
    return ServiceCore::Instance().Fini();
}

int usb_device_get_device_list(usb_class_e device_class, usb_device_list_s** list) {
    if (!list) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    platform::DeviceList devices;
    const int result = ServiceCore::Instance().Devices(device_class, devices);
    if (result != USB_DEVICE_ERROR_NONE) return result;
    auto made = std::make_unique<usb_device_list_s>();
    for (auto& device : devices) made->devices.push_back({std::move(device)});
    *list = made.release();
    return USB_DEVICE_ERROR_NONE;
}

int usb_device_free_device_list(usb_device_list_s* list) {
    if (!list) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    std::unique_ptr<usb_device_list_s> ended(list);
    return USB_DEVICE_ERROR_NONE;
}

int usb_device_list_get_count(usb_device_list_s* list, int* count) {
    if (!list || !count) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    *count = static_cast<int>(list->devices.size());
    return USB_DEVICE_ERROR_NONE;
}

int usb_device_list_get_first(usb_device_list_s* list, usb_device_s** device) {
    if (!list || !device) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    return WalkFrom(list, 0, device);
}

int usb_device_list_get_next(usb_device_list_s* list, usb_device_s** device) {
    if (!list || !device) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    return WalkFrom(list, list->next, device);
}

int usb_device_get_devname(usb_device_s* device, char** devname) {
    return GetText(device, &DeviceRecord::deviceName, devname);
}

int usb_device_get_manufacturer(usb_device_s* device, char** manufacturer) {
    return GetText(device, &DeviceRecord::manufacturer, manufacturer);
}

int usb_device_get_product(usb_device_s* device, char** product) {
    return GetText(device, &DeviceRecord::product, product);
}

int usb_device_get_serial(usb_device_s* device, char** serial) {
    return GetText(device, &DeviceRecord::serial, serial);
}

int usb_device_get_mountpath(usb_device_s* device, char** mountpath) {
    return GetText(device, &DeviceRecord::mountPath, mountpath);
}

int usb_device_get_partlabel(usb_device_s* device, char** partlabel) {
    return GetText(device, &DeviceRecord::label, partlabel);
}

int usb_device_get_vendor_id(usb_device_s* device, int* vendor_id) {
    return GetValue(device, &DeviceRecord::vendorId, vendor_id);
}

int usb_device_get_address(usb_device_s* device, int* address) {
    return GetValue(device, &DeviceRecord::address, address);
}

int usb_device_get_bus(usb_device_s* device, int* bus) {
    return GetValue(device, &DeviceRecord::bus, bus);
}

int usb_device_get_class(usb_device_s* device, usb_class_e* device_class) {
    return GetValue(device, &DeviceRecord::deviceClass, device_class);
}

int usb_device_get_protocol(usb_device_s* device, int* protocol) {
    return GetValue(device, &DeviceRecord::protocol, protocol);
}

int usb_device_get_number(usb_device_s* device, int* number) {
    return GetValue(device, &DeviceRecord::number, number);
}

int usb_mass_storage_get_disk_type(usb_device_s* device, disktype_e* disk_type) {
    return GetValue(device, &DeviceRecord::diskType, disk_type);
}

int usb_mass_storage_get_filesystem_type(usb_device_s* device, fstype_e* fstype) {
    return GetValue(device, &DeviceRecord::fileSystem, fstype);
}

int usb_set_connected_cb(usb_connected_cb callback, void* user_data) {
    if (!callback) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    ServiceCore::Instance().Dispatcher().Add(callback, user_data);
    return USB_DEVICE_ERROR_NONE;
}

int usb_unset_connected_cb(usb_connected_cb callback, void* user_data) {
    if (!callback) return USB_DEVICE_ERROR_INVALID_PARAMETER;
    return ServiceCore::Instance().Dispatcher().Remove(callback, user_data)
               ? USB_DEVICE_ERROR_NONE
               : USB_DEVICE_ERROR_NO_DEVICE;
}

}  // extern "C"
