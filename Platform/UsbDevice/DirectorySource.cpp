#include "UsbDevice/DirectorySource.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>

#include "Log/Log.h"
#include "UsbDevice/KeyFile.h"

namespace platform {
namespace {

constexpr int kBulkOnlyProtocol = 0x50;
constexpr int kPictureTransferProtocol = 1;
const std::string kKeyFileEnding = ".usb";

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

// The visible names in a directory, sorted by bytes. No value when it cannot be read; empty for a
// directory that does not exist.
std::optional<std::set<std::string>> NamesIn(const std::string& path) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    if (!directory) {
        if (errno == ENOENT || errno == ENOTDIR) return std::set<std::string>();
        return std::nullopt;
    }
    std::set<std::string> names;
    while (const dirent* entry = readdir(directory.get()))
        if (entry->d_name[0] != '.') names.insert(entry->d_name);
    return names;
}

// The folder's name when `name` is a key file's, else empty.
std::string FolderOfKeyFile(const std::string& name) {
    if (name.size() <= kKeyFileEnding.size()) return "";
    const size_t length = name.size() - kKeyFileEnding.size();
    return name.compare(length, std::string::npos, kKeyFileEnding) == 0 ? name.substr(0, length)
                                                                        : "";
}

fstype_e FileSystemOf(const std::string& path) {
    static const std::map<unsigned long, const char*> names = {{0x4d44, "vfat"},
                                                               {0x2011bab0, "exfat"},
                                                               {0xef53, "ext4"},
                                                               {0x5346544e, "ntfs"},
                                                               {0x7366746e, "ntfs"}};
    struct statfs status;
    if (statfs(path.c_str(), &status) != 0) return FSTYPE_OTHER;
    const auto found = names.find(static_cast<unsigned long>(status.f_type));
    return found == names.end() ? FSTYPE_OTHER : FileSystemByName(found->second);
}

// A file system mounted over the folder is identified by its own id, a plain folder by its path.
std::string UuidOf(const std::string& path, bool isMountPoint) {
    struct statvfs status;
    std::string text = "folder " + path;
    if (isMountPoint && statvfs(path.c_str(), &status) == 0 && status.f_fsid != 0)
        text = "file system " + std::to_string(status.f_fsid);
    char* digest = g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.c_str(), -1);
    const std::string uuid(digest, 32);
    g_free(digest);
    return uuid;
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
    device.fileSystem = FileSystemOf(path);
    return device;
}

DeviceRecord PlainCamera(const std::string& name) {
    DeviceRecord device;
    device.deviceClass = USB_CLASS_STILL_IMAGE;
    device.deviceName = name;
    device.product = name;
    device.protocol = kPictureTransferProtocol;
    return device;
}

}  // namespace

DirectorySource::DirectorySource(std::string root, const std::string& mountTable)
    : m_root(std::move(root)), m_mounts(mountTable), m_watch(m_root) {}

bool DirectorySource::Open() {
    if (!m_mounts.Open())
        PLATFORM_LOG("USB_DEVICE", LOG_WARNING, "there is no mount table to watch");
    if (!m_watch.Open()) return false;
    m_watch.Arm();
    return true;
}

void DirectorySource::AddDescriptors(std::vector<pollfd>& polled) const {
    polled.push_back({m_watch.Get(), POLLIN, 0});
    if (m_mounts.Get() >= 0) polled.push_back({m_mounts.Get(), POLLPRI, 0});
}

bool DirectorySource::Drain() {
    const bool entries = m_watch.Drain();
    return m_mounts.Reload() || entries;
}

bool DirectorySource::List(std::vector<DeviceRecord>& devices) {
    m_watch.Arm();
    const auto names = NamesIn(m_root);
    if (!names && !m_unreadable)
        PLATFORM_LOG("USB_DEVICE", LOG_ERROR, "cannot read %s: %s", m_root.c_str(),
                     strerror(errno));
    m_unreadable = !names;
    if (!names) return false;
    const auto isAway = [&](const std::string& name) { return names->count(name) == 0; };
    m_watch.Forget(isAway);
    for (auto at = m_complaints.begin(); at != m_complaints.end();)
        at = isAway(at->first) ? m_complaints.erase(at) : std::next(at);
    for (const std::string& name : *names) {
        struct stat status;
        if (lstat(PathOf(name).c_str(), &status) != 0) continue;
        if (S_ISDIR(status.st_mode))
            AddFolder(name, status, devices);
        else if (S_ISREG(status.st_mode) && isAway(FolderOfKeyFile(name)))
            AddLone(name, devices);
    }
    return true;
}

void DirectorySource::AddFolder(const std::string& name, const struct stat& status,
                                std::vector<DeviceRecord>& devices) {
    DeviceRecord device = PlainFolder(PathOf(name), name);
    ReadKeys(name, device);
    struct stat root;
    const bool isMountPoint = stat(m_root.c_str(), &root) == 0 && root.st_dev != status.st_dev;
    // A storage with a serial number is identified by that, wherever it is mounted.
    if (device.uuid.empty() && device.serial.empty())
        device.uuid = UuidOf(device.mountPath, isMountPoint);
    if (device.deviceClass == USB_CLASS_STILL_IMAGE) device.mountPath = kNotMounted;
    device.presence = name + " " + std::to_string(status.st_dev) + ":" +
                      std::to_string(status.st_ino) + " " + std::to_string(m_watch.TimesGone(name));
    devices.push_back(std::move(device));
}

// A key file without a folder: a camera, or an absent stick.
void DirectorySource::AddLone(const std::string& name, std::vector<DeviceRecord>& devices) {
    const std::string folder = FolderOfKeyFile(name);
    if (folder.empty()) return;
    DeviceRecord device = PlainCamera(folder);
    if (!ReadKeys(folder, device) || device.deviceClass == USB_CLASS_MASS_STORAGE) return;
    device.presence = name + " " + std::to_string(m_watch.TimesGone(name));
    devices.push_back(std::move(device));
}

bool DirectorySource::ReadKeys(const std::string& name, DeviceRecord& device) {
    const std::string path = PathOf(name) + kKeyFileEnding;
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return false;
    std::vector<std::string> complaints;
    const bool read = ReadKeyFile(path, device, complaints);
    std::vector<std::string>& logged = m_complaints[name + kKeyFileEnding];
    if (complaints != logged)
        for (const std::string& complaint : complaints)
            PLATFORM_LOG("USB_DEVICE", LOG_WARNING, "%s: %s", path.c_str(), complaint.c_str());
    logged = std::move(complaints);
    return read;
}

}  // namespace platform
