#include "MediaContent/Storages.h"

#include <gio/gunixmounts.h>
#include <glib.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Log/Log.h"
#include "MediaContent/Paths.h"

namespace platform {
namespace {

// "vfat", "iso9660"; "folder" when `path` is not a mount point.
std::string FileSystemAt(const std::string& path) {
    GUnixMountEntry* entry = g_unix_mount_at(path.c_str(), nullptr);
    if (!entry) return "folder";
    const std::string type = g_unix_mount_get_fs_type(entry);
    g_unix_mount_free(entry);
    return type;
}

// True when the same file system is still mounted there, on a device that the system still has. (A
// stick that was pulled out may stay mounted for a moment.)
bool IsStillThere(const Mount& mount) {
    struct stat now {};
    if (stat(mount.path.c_str(), &now) != 0 || now.st_dev != mount.root.st_dev ||
        now.st_ino != mount.root.st_ino)
        return false;
    const std::string devices = "/sys/dev/block/";
    const std::string device =
        devices + std::to_string(major(now.st_dev)) + ':' + std::to_string(minor(now.st_dev));
    return major(now.st_dev) == 0 || access(devices.c_str(), F_OK) != 0 ||
           access(device.c_str(), F_OK) == 0;
}

std::string ToldName(const Mount& mount) {
    return mount.identity + ' ' + mount.path;
}

// The same for the same identity, in every database.
std::string StorageIdFor(const std::string& identity) {
    gchar* sum = g_compute_checksum_for_string(G_CHECKSUM_SHA1, identity.c_str(),
                                               static_cast<gssize>(identity.size()));
    const std::string hex = sum;
    g_free(sum);
    return hex.substr(0, 8) + '-' + hex.substr(8, 4) + '-' + hex.substr(12, 4) + '-' +
           hex.substr(16, 4) + '-' + hex.substr(20, 12);
}

}  // namespace

MountPtr Storages::Make(const MountedStorage& storage) {
    const auto mount = std::make_shared<Mount>();
    mount->path = WithoutSlash(storage.mountPath);
    mount->realPath = WithoutSlash(RealPath(storage.mountPath));
    if (mount->realPath.empty()) mount->realPath = mount->path;
    mount->identity = ChooseIdentity(storage, mount->path);
    mount->id = StorageIdFor(mount->identity);
    stat(mount->path.c_str(), &mount->root);
    mount->name = storage.label.empty() ? LastPart(mount->path) : storage.label;
    mount->isNews = m_told.insert(ToldName(*mount)).second;
    PLATFORM_LOG("MEDIA_CONTENT", mount->isNews ? int{LOG_INFO} : int{DLOG_PRIORITY_PROGRESS},
                 "storage \"%s\" (%s) is mounted at %s", mount->name.c_str(),
                 FileSystemAt(mount->path).c_str(), mount->path.c_str());
    return mount;
}

void Storages::Add(MountPtr mount) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mounts.push_back(std::move(mount));
}

MountPtr Storages::Take(const std::string& mountPath) {
    const MountPtr gone = At(mountPath);
    if (!gone) return nullptr;
    gone->gone = true;
    if (!IsStillThere(*gone)) {
        m_told.erase(ToldName(*gone));
        PLATFORM_LOG("MEDIA_CONTENT", LOG_INFO, "storage \"%s\" at %s is gone", gone->name.c_str(),
                     gone->path.c_str());
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mounts.erase(std::find(m_mounts.begin(), m_mounts.end(), gone));
    return gone;
}

std::vector<MountPtr> Storages::All() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_mounts;
}

MountPtr Storages::At(const std::string& mountPath) const {
    const std::string path = WithoutSlash(mountPath);
    for (const auto& mount : All())
        if (mount->path == path) return mount;
    return nullptr;
}

MountPtr Storages::Find(const std::string& storageId) const {
    for (const auto& mount : All())
        if (mount->id == storageId && mount->number != 0) return mount;
    return nullptr;
}

Scope Storages::ScopeOf(const media_filter_s* filter) const {
    Scope scope;
    for (const auto& mount : All()) {
        const int64_t number = mount->number;
        if (number == 0) continue;
        if (filter && filter->hasStorage && filter->storage != mount->id) continue;
        scope.emplace(number, mount->path);
    }
    return scope;
}

std::string Storages::ChooseIdentity(const MountedStorage& storage, const std::string& path) const {
    std::vector<std::string> names;
    if (!storage.uuid.empty()) names.push_back("uuid:" + storage.uuid);
    if (!storage.serial.empty())
        names.push_back("serial:" + storage.serial + '#' + std::to_string(storage.partition));
    names.push_back("path:" + path);
    const auto mounts = All();
    for (const std::string& name : names)
        if (std::none_of(mounts.begin(), mounts.end(),
                         [&](const auto& mount) { return mount->identity == name; }))
            return name;
    return names.back();
}

MountPtr Storages::Resolve(const std::string& path, std::string& below) const {
    MountPtr best;
    for (const auto& mount : All()) {
        std::string rest;
        if (mount->number == 0 || !IsInside(path, mount->realPath, rest)) continue;
        if (best && best->realPath.size() > mount->realPath.size()) continue;
        best = mount;
        below = rest;
    }
    return best;
}

}  // namespace platform
