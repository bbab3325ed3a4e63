// The USB device service, as a C interface.
//
// Conventions
//   Results   0 (USB_DEVICE_ERROR_NONE) is success, anything else an error code below; on failure
//             the output is left unchanged.
//   Threads   every call may be made from any thread.
//   Devices   a usb_device_s is an immutable description. One obtained from a list belongs to the
//             list; one passed to a callback is valid during the callback only.
//   Text      text outputs are heap memory, never null; the receiver frees them with free(). A
//             text that the device does not have is empty. The mount path of a device without a
//             mounted file system is "n/a". Texts are the device's own bytes, not always UTF-8.
#ifndef PLATFORM_USB_DEVICE_H
#define PLATFORM_USB_DEVICE_H

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    USB_DEVICE_ERROR_NONE = 0,
    USB_DEVICE_ERROR_INVALID_PARAMETER = -22,
    USB_DEVICE_ERROR_OUT_OF_MEMORY = -12,
    USB_DEVICE_ERROR_NOT_INITIALIZED = -2001,  // usb_device_init has not been called
    USB_DEVICE_ERROR_NO_DEVICE = -2002,        // no (further) device in the list
    USB_DEVICE_ERROR_IO = -2003,               // the system's device list could not be read
} usb_device_error_e;

// USB interface classes, by their assigned numbers. Other classes are passed on unchanged.
typedef enum {
    USB_CLASS_STILL_IMAGE = 6,   // cameras: picture transfer
    USB_CLASS_MASS_STORAGE = 8,  // sticks, disks, card readers: one device per partition
    USB_CLASS_ALL = 0x7fffffff,  // as an argument of usb_device_get_device_list: every class
} usb_class_e;

typedef enum {
    DISK_TYPE_UNKNOWN = 0,
    DISK_TYPE_REMOVABLE = 1,  // sticks and cards
    DISK_TYPE_FIXED = 2,      // hard disks
    DISK_TYPE_OPTICAL = 3,
} disktype_e;

typedef enum {
    FSTYPE_VFAT = 0,   // FAT12, FAT16, FAT32 and exFAT
    FSTYPE_OTHER = 1,  // any other file system
    FSTYPE_EXT4 = 2,   // ext2, ext3 and ext4
    FSTYPE_NTFS = 3,
} fstype_e;

typedef struct usb_device_s usb_device_s;
typedef struct usb_device_list_s usb_device_list_s;

// A change of one device, on the thread that runs the default main context. `action` is "mounted"
// or "blocked" (a file system of the device was mounted or unmounted) or "added" or "removed" (a
// device without a file system was plugged in or unplugged).
typedef void (*usb_connected_cb)(usb_device_s* device, char* action, void* user_data);

// The first call starts watching for devices; later ones are only counted; fini releases one. When
// init returns, the devices present are known and their storages recorded in the media database.
int usb_device_init(void);
int usb_device_fini(void);  // NOT_INITIALIZED when there is nothing to release

// The devices of one class at present. The caller owns the list and everything in it.
int usb_device_get_device_list(usb_class_e device_class, usb_device_list_s** list);
int usb_device_free_device_list(usb_device_list_s* list);
int usb_device_list_get_count(usb_device_list_s* list, int* count);
// get_first restarts the iteration, get_next continues it; NO_DEVICE at the end.
int usb_device_list_get_first(usb_device_list_s* list, usb_device_s** device);
int usb_device_list_get_next(usb_device_list_s* list, usb_device_s** device);

int usb_device_get_devname(usb_device_s* device, char** devname);  // the device node
int usb_device_get_manufacturer(usb_device_s* device, char** manufacturer);
int usb_device_get_product(usb_device_s* device, char** product);
int usb_device_get_serial(usb_device_s* device, char** serial);
int usb_device_get_mountpath(usb_device_s* device, char** mountpath);
int usb_device_get_partlabel(usb_device_s* device, char** partlabel);
int usb_device_get_vendor_id(usb_device_s* device, int* vendor_id);
int usb_device_get_address(usb_device_s* device, int* address);  // on its bus
int usb_device_get_bus(usb_device_s* device, int* bus);
int usb_device_get_class(usb_device_s* device, usb_class_e* device_class);
int usb_device_get_protocol(usb_device_s* device, int* protocol);  // interface protocol
int usb_device_get_number(usb_device_s* device, int* number);      // partition number, 0 for none
int usb_mass_storage_get_disk_type(usb_device_s* device, disktype_e* disk_type);
int usb_mass_storage_get_filesystem_type(usb_device_s* device, fstype_e* fstype);

// Adds a receiver of device changes; the pair of callback and user data is one receiver.
int usb_set_connected_cb(usb_connected_cb callback, void* user_data);
// Removes it. Once this returns, the receiver is not running and will not be called again, except
// when it is called from inside that very receiver. NO_DEVICE when there was no such receiver.
int usb_unset_connected_cb(usb_connected_cb callback, void* user_data);

#ifdef __cplusplus
}
#endif

#endif
