#include "UsbDevice/DeviceRecord.h"

#include <map>
#include <tuple>

namespace platform {
namespace {

auto Fields(const DeviceRecord& r) {
    return std::tie(r.presence, r.deviceClass, r.deviceName, r.manufacturer, r.product, r.serial,
                    r.mountPath, r.label, r.uuid, r.vendorId, r.productId, r.bus, r.address,
                    r.protocol, r.number, r.diskType, r.fileSystem);
}

}  // namespace

const char* const kNotMounted = "n/a";

bool DeviceRecord::operator==(const DeviceRecord& other) const {
    return Fields(*this) == Fields(other);
}

fstype_e FileSystemByName(const std::string& name) {
    static const std::map<std::string, fstype_e> numbers = {
        {"vfat", FSTYPE_VFAT},  {"fat", FSTYPE_VFAT},  {"msdos", FSTYPE_VFAT},
        {"exfat", FSTYPE_VFAT}, {"ext2", FSTYPE_EXT4}, {"ext3", FSTYPE_EXT4},
        {"ext4", FSTYPE_EXT4},  {"ntfs", FSTYPE_NTFS}, {"ntfs3", FSTYPE_NTFS},
    };
    const auto found = numbers.find(name);
    return found == numbers.end() ? FSTYPE_OTHER : found->second;
}

}  // namespace platform
