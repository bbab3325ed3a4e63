#include "UsbDevice/DirectorySource.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "Log/Log.h"

namespace platform {
namespace {

constexpr int kBulkOnlyProtocol = 0x50;

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// The visible names in a directory, in their order by bytes. No value when it cannot be read; a
// directory that does not exist has none.
std::optional<std::vector<std::string>> NamesIn(const std::string& path) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    if (!directory) {
        if (errno == ENOENT || errno == ENOTDIR) return std::vector<std::string>();
        PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "cannot read %s: %s", path.c_str(), strerror(errno));
        return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(directory.get()))
        if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

DeviceRecord PlainFolder(const std::string& path, const std::string& name) {
    DeviceRecord device;
    device.deviceName = name;
    device.product = name;
    device.label = name;
    device.mountPath = path;
    device.number = 1;
    device.protocol = kBulkOnlyProtocol;
    device.diskType = DISK_TYPE_REMOVABLE;
    return device;
}

}  // namespace

DirectorySource::DirectorySource(std::string root) : m_root(std::move(root)) {}

bool DirectorySource::Open() {
    return true;
}

void DirectorySource::AddDescriptors(std::vector<pollfd>&) const {}

bool DirectorySource::Drain() {
    return true;
}

bool DirectorySource::List(std::vector<DeviceRecord>& devices) {
    const auto names = NamesIn(m_root);
    if (!names) return false;
    for (const std::string& name : *names) {
        const std::string path = m_root + "/" + name;
        struct stat status;
        if (lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
            devices.push_back(PlainFolder(path, name));
    }
    return true;
}

}  // namespace platform
