// What a test puts into the scripted platform: plain descriptions, copied in.
#ifndef FAKE_PLATFORM_DESCRIPTIONS_H
#define FAKE_PLATFORM_DESCRIPTIONS_H

#include <optional>
#include <string>

#include "MediaContent.h"
#include "UsbDevice.h"

namespace fake {

using Text = std::optional<std::string>;  // nothing: the platform answers a null pointer

// One media item. Its storage is the one whose path it lies below, its folder the one that its
// path names.
struct Item {
    std::string id;  // empty: the platform makes one
    std::string path;
    media_content_type_e type = MEDIA_CONTENT_TYPE_IMAGE;
    Text name, title, mime, description, thumbnail;
    unsigned long long size = 0;
    time_t added = 0;
    time_t modified = 0;
    int rating = 0;
    double latitude = 0.0;
    double longitude = 0.0;
    int width = 0;
    int height = 0;
    int orientation = MEDIA_CONTENT_ORIENTATION_NORMAL;
    Text album, artist, genre, composer, copyright, track;
    int bitRate = 0;
    int duration = 0;

    Item() = default;
    Item(std::string itemPath, media_content_type_e itemType, time_t addedTime = 0)
        : path(std::move(itemPath)), type(itemType), added(addedTime) {
        name = path.substr(path.rfind('/') + 1);
    }
};

inline Item Photo(std::string path, time_t added = 0) {
    return Item(std::move(path), MEDIA_CONTENT_TYPE_IMAGE, added);
}
inline Item Video(std::string path, time_t added = 0) {
    return Item(std::move(path), MEDIA_CONTENT_TYPE_VIDEO, added);
}
inline Item Music(std::string path, time_t added = 0) {
    return Item(std::move(path), MEDIA_CONTENT_TYPE_MUSIC, added);
}
inline Item Sound(std::string path, time_t added = 0) {
    return Item(std::move(path), MEDIA_CONTENT_TYPE_SOUND, added);
}

// One folder that the database knows.
struct Folder {
    std::string id;
    std::string path;
};

// One storage that the database knows.
struct Storage {
    std::string id;
    std::string path;
    int scanStatus = MEDIA_STORAGE_SCAN_COMPLETE;
    int fromListing = 1;  // the listing of storages, counted from 1, in which it first shows up
};

// One USB device.
struct Device {
    int deviceClass = USB_CLASS_MASS_STORAGE;
    std::string mountPath = "n/a";
    std::string devname = "/dev/sda1";
    std::string manufacturer = "Maker";
    std::string product = "Model";
    std::string serial = "S-1";
    std::string partlabel = "LABEL";
    int vendorId = 0x1234;
    int address = 2;
    int bus = 1;
    int protocol = 80;
    int number = 1;
    int diskType = DISK_TYPE_REMOVABLE;
    int fstype = FSTYPE_VFAT;
};

inline Device Stick(std::string mountPath) {
    Device device;
    device.mountPath = std::move(mountPath);
    return device;
}
inline Device Camera(int bus, int address) {
    Device device;
    device.deviceClass = USB_CLASS_STILL_IMAGE;
    device.product = "Camera";
    device.bus = bus;
    device.address = address;
    return device;
}
inline Device OfClass(int deviceClass, std::string mountPath) {
    Device device = Stick(std::move(mountPath));
    device.deviceClass = deviceClass;
    return device;
}

// One change of the database, as the platform reports it.
struct DbUpdate {
    media_content_error_e error = MEDIA_CONTENT_ERROR_NONE;
    int item = MEDIA_CONTENT_ITEM_DIRECTORY;
    int update = MEDIA_CONTENT_UPDATE;
    int media = MEDIA_CONTENT_TYPE_OTHERS;
    Text uuid, path, mime;
};

// The end of a storage's scan.
inline DbUpdate ScanEnd(std::string mountPath,
                        media_content_error_e error = MEDIA_CONTENT_ERROR_NONE) {
    DbUpdate update;
    update.error = error;
    update.path = std::move(mountPath);
    return update;
}
// A change of one item.
inline DbUpdate Change(int media, std::string path) {
    DbUpdate update;
    update.item = MEDIA_CONTENT_ITEM_FILE;
    update.media = media;
    update.path = std::move(path);
    update.mime = "image/jpeg";
    return update;
}

}  // namespace fake

#endif
