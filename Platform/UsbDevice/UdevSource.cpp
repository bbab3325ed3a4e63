#include "UsbDevice/UdevSource.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>

#include "Log/Log.h"
#include "UsbDevice/Paths.h"

namespace platform {
namespace {

const char* const kStillImageClass = "06";

std::string Text(const char* text) {
    return text ? text : "";
}

std::string Property(udev_device* device, const char* name) {
    return Text(udev_device_get_property_value(device, name));
}

// Some firmware pads its texts with blanks.
std::string Attribute(udev_device* device, const char* name) {
    std::string text = Text(udev_device_get_sysattr_value(device, name));
    text.erase(text.find_last_not_of(" \n") + 1);
    return text;
}

int Number(const std::string& text, int base) {
    return static_cast<int>(strtol(text.c_str(), nullptr, base));
}

std::string FirstOf(const std::string& first, const std::string& second) {
    return first.empty() ? second : first;
}

udev_device* ParentOfType(udev_device* device, const char* type) {
    return udev_device_get_parent_with_subsystem_devtype(device, "usb", type);
}

// Reads the properties of the USB device and its interface; `node` has the udev properties. False
// when the device is going away and has lost the properties that every USB device has.
bool DescribeUsb(udev_device* usb, udev_device* interface, udev_device* node,
                 DeviceRecord& device) {
    device.deviceName = Text(udev_device_get_devnode(node));
    device.manufacturer =
        FirstOf(Attribute(usb, "manufacturer"), UnescapeUdev(Property(node, "ID_VENDOR_ENC")));
    device.product =
        FirstOf(Attribute(usb, "product"), UnescapeUdev(Property(node, "ID_MODEL_ENC")));
    device.serial = FirstOf(Attribute(usb, "serial"), Property(node, "ID_SERIAL_SHORT"));
    device.vendorId = Number(Attribute(usb, "idVendor"), 16);
    device.productId = Number(Attribute(usb, "idProduct"), 16);
    device.bus = Number(Attribute(usb, "busnum"), 10);
    device.address = Number(Attribute(usb, "devnum"), 10);
    device.protocol = Number(Attribute(interface, "bInterfaceProtocol"), 16);
    return device.bus > 0 && device.address > 0 && !device.deviceName.empty();
}

disktype_e DiskTypeOf(udev_device* block) {
    if (Property(block, "ID_CDROM") == "1" || Property(block, "ID_TYPE") == "cd")
        return DISK_TYPE_OPTICAL;
    udev_device* parent = udev_device_get_parent_with_subsystem_devtype(block, "block", "disk");
    const std::string removable = Attribute(parent ? parent : block, "removable");
    if (removable.empty()) return DISK_TYPE_UNKNOWN;
    return removable == "1" ? DISK_TYPE_REMOVABLE : DISK_TYPE_FIXED;
}

// Calls `take` with each device of the enumeration that still exists. False when the system's list
// could not be read.
bool ForEach(udev* context, udev_enumerate* enumerate,
             const std::function<void(udev_device*)>& take) {
    const int result = udev_enumerate_scan_devices(enumerate);
    if (result < 0) {
        PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "cannot list devices: %s", strerror(-result));
        return false;
    }
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate)) {
        const UdevPtr<udev_device> device(
            udev_device_new_from_syspath(context, udev_list_entry_get_name(entry)));
        if (device) take(device.get());
    }
    return true;
}

// Call this last: a device that has vanished meanwhile was read only partially.
bool IsStillThere(udev_device* device) {
    return access(udev_device_get_syspath(device), F_OK) == 0;
}

}  // namespace

std::string UnescapeUdev(const std::string& text) {
    std::string plain;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool escape = text.compare(at, 2, "\\x") == 0 && at + 3 < text.size() &&
                            isxdigit(static_cast<unsigned char>(text[at + 2])) &&
                            isxdigit(static_cast<unsigned char>(text[at + 3]));
        plain.push_back(escape ? static_cast<char>(Number(text.substr(at + 2, 2), 16)) : text[at]);
        if (escape) at += 3;
    }
    return plain;
}

UdevSource::UdevSource(std::string root, const std::string& mountTable)
    : m_root(std::move(root)), m_mounts(mountTable) {}

bool UdevSource::Open() {
    m_udev.reset(udev_new());
    if (m_udev) m_monitor.reset(udev_monitor_new_from_netlink(m_udev.get(), "udev"));
    if (!m_monitor) {
        PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "cannot watch devices: %s", strerror(errno));
        return false;
    }
    udev_monitor_filter_add_match_subsystem_devtype(m_monitor.get(), "block", nullptr);
    udev_monitor_filter_add_match_subsystem_devtype(m_monitor.get(), "usb", nullptr);
    if (udev_monitor_enable_receiving(m_monitor.get()) < 0) return false;
    if (m_mounts.Open()) return true;
    PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "there is no mount table: %s", strerror(errno));
    return false;
}

void UdevSource::AddDescriptors(std::vector<pollfd>& polled) const {
    polled.push_back({udev_monitor_get_fd(m_monitor.get()), POLLIN, 0});
    polled.push_back({m_mounts.Get(), POLLPRI, 0});
}

bool UdevSource::Drain() {
    const bool devices = DrainEvents();
    return m_mounts.Reload() || devices;
}

bool UdevSource::DrainEvents() {
    bool changed = false;
    for (;;) {
        errno = 0;
        const UdevPtr<udev_device> device(udev_monitor_receive_device(m_monitor.get()));
        if (!device && errno != ENOBUFS) return changed;
        changed = true;
        if (device && Text(udev_device_get_action(device.get())) == "remove")
            m_timesGone[udev_device_get_syspath(device.get())] = ++m_gone;
    }
}

bool UdevSource::List(std::vector<DeviceRecord>& devices) {
    m_mounts.Reload();
    for (auto at = m_timesGone.begin(); at != m_timesGone.end();)
        at = access(at->first.c_str(), F_OK) == 0 ? std::next(at) : m_timesGone.erase(at);
    return ListStorages(devices) && ListCameras(devices);
}

bool UdevSource::IsMountPoint(const std::string& path) const {
    const auto& mounts = m_mounts.Mounts();
    return std::any_of(mounts.begin(), mounts.end(),
                       [&](const MountLine& mount) { return mount.mountPoint == path; });
}

bool UdevSource::ListStorages(std::vector<DeviceRecord>& devices) {
    const UdevPtr<udev_enumerate> enumerate(udev_enumerate_new(m_udev.get()));
    udev_enumerate_add_match_subsystem(enumerate.get(), "block");
    return ForEach(m_udev.get(), enumerate.get(), [&](udev_device* block) {
        DeviceRecord device;
        if (DescribeStorage(block, device)) devices.push_back(std::move(device));
    });
}

bool UdevSource::DescribeStorage(udev_device* block, DeviceRecord& device) const {
    const MountLine* mount = MountOf(block);
    udev_device* usb = ParentOfType(block, "usb_device");
    udev_device* interface = ParentOfType(block, "usb_interface");
    if (!mount || !usb || !interface || !DescribeUsb(usb, interface, block, device)) return false;
    device.deviceClass = USB_CLASS_MASS_STORAGE;
    device.mountPath = mount->mountPoint;
    device.label = UnescapeUdev(
        FirstOf(Property(block, "ID_FS_LABEL_ENC"), Property(block, "ID_PART_ENTRY_NAME")));
    device.uuid = Property(block, "ID_FS_UUID");
    device.number = Number(Attribute(block, "partition"), 10);
    device.diskType = DiskTypeOf(block);
    device.fileSystem = FileSystemByName(FirstOf(Property(block, "ID_FS_TYPE"), mount->type));
    device.presence = PresenceOf(block) + " " + std::to_string(mount->id);
    const bool isPartition = Text(udev_device_get_devtype(block)) == "partition";
    return isPartition == (device.number > 0) && IsStillThere(block);
}

const MountLine* UdevSource::MountOf(udev_device* block) const {
    const dev_t number = udev_device_get_devnum(block);
    const std::string node = Text(udev_device_get_devnode(block));
    const MountLine* best = nullptr;
    for (const MountLine& mount : m_mounts.Mounts()) {
        // Some file systems mount with a different device number; those are matched by the device
        // node.
        const bool same = number != 0 && makedev(mount.major, mount.minor) == number;
        if (!same && (mount.major != 0 || node.empty() || mount.source != node)) continue;
        if (!best || Preference(mount) > Preference(*best)) best = &mount;
    }
    return best;
}

int UdevSource::Preference(const MountLine& mount) const {
    return (IsStrictlyBelow(mount.mountPoint, m_root) ? 2 : 0) + (mount.root == "/" ? 1 : 0);
}

std::string UdevSource::PresenceOf(udev_device* node) const {
    const std::string path = udev_device_get_syspath(node);
    const auto found = m_timesGone.find(path);
    return path + " " + std::to_string(found == m_timesGone.end() ? 0 : found->second);
}

bool UdevSource::ListCameras(std::vector<DeviceRecord>& devices) {
    const UdevPtr<udev_enumerate> enumerate(udev_enumerate_new(m_udev.get()));
    udev_enumerate_add_match_subsystem(enumerate.get(), "usb");
    udev_enumerate_add_match_sysattr(enumerate.get(), "bInterfaceClass", kStillImageClass);
    std::set<std::string> known;  // a camera may have several such interfaces
    return ForEach(m_udev.get(), enumerate.get(), [&](udev_device* interface) {
        udev_device* usb = ParentOfType(interface, "usb_device");
        DeviceRecord device;
        device.deviceClass = USB_CLASS_STILL_IMAGE;
        if (!usb || !DescribeUsb(usb, interface, usb, device) || !IsStillThere(interface)) return;
        if (!known.insert(udev_device_get_syspath(usb)).second) return;
        device.presence = PresenceOf(usb);
        devices.push_back(std::move(device));
    });
}

}  // namespace platform
