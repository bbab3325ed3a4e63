#include "MediaContent/Service.h"

#include <gio/gunixmounts.h>
#include <glib.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "Log/Log.h"
#include "MediaContent/DatabaseFile.h"
#include "MediaContent/Paths.h"

namespace platform {
namespace {

int Cores() {
    return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

std::string BesideProgram(const char* name) {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return name;
    const std::string program(path, static_cast<size_t>(length));
    return program.substr(0, program.rfind('/') + 1) + name;
}

ExtractorOptions ExtractorOptionsFor(const MediaServiceOptions& options) {
    ExtractorOptions extractor;
    extractor.helperPath = options.extractorPath.empty() ? BesideProgram("contents-mgr-extract")
                                                         : options.extractorPath;
    extractor.idleHelpers = Cores();
    return extractor;
}

std::string DefaultDatabase() {
    if (const char* state = getenv("XDG_STATE_HOME"); state && *state)
        return std::string(state) + "/contents-mgr/media.db";
    const char* home = getenv("HOME");
    if (getuid() == 0 || !home) return "/var/lib/contents-mgr/media.db";
    return std::string(home) + "/.local/state/contents-mgr/media.db";
}

// "vfat", "iso9660"; "folder" where nothing is mounted.
std::string FileSystemAt(const std::string& path) {
    GUnixMountEntry* entry = g_unix_mount_at(path.c_str(), nullptr);
    if (!entry) return "folder";
    const std::string type = g_unix_mount_get_fs_type(entry);
    g_unix_mount_free(entry);
    return type;
}

// The same file system is mounted there as when it came, on a device that the system still has.
// (A stick that was pulled out may stay mounted for a moment.)
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

// The same for the same identity, in whatever database.
std::string StorageIdFor(const std::string& identity) {
    gchar* sum = g_compute_checksum_for_string(G_CHECKSUM_SHA1, identity.c_str(),
                                               static_cast<gssize>(identity.size()));
    const std::string hex = sum;
    g_free(sum);
    return hex.substr(0, 8) + '-' + hex.substr(8, 4) + '-' + hex.substr(12, 4) + '-' +
           hex.substr(16, 4) + '-' + hex.substr(20, 12);
}

}  // namespace

Session::Session(const MediaServiceOptions& options, Updates& updates)
    : store(options.databaseFile.empty() ? DefaultDatabase() : options.databaseFile),
      extractor(ExtractorOptionsFor(options)),
      workers(static_cast<size_t>(Cores())),
      tools{store, extractor, workers, updates} {}

Service& Service::Get() {
    static Service* service = new Service;
    return *service;
}

int ReportFailure(const char* call, Session* session) {
    try {
        throw;
    } catch (const BadFilter& error) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "%s refused: %s", call, error.what());
        return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    } catch (const DatabaseError& error) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_ERROR, "%s: database: %s", call, error.what());
        if (session && error.MeansDamage()) session->store.ReportDamage();
        return error.Code() == SQLITE_BUSY ? MEDIA_CONTENT_ERROR_DB_BUSY
                                           : MEDIA_CONTENT_ERROR_DB_FAILED;
    } catch (const std::bad_alloc&) {
        return MEDIA_CONTENT_ERROR_OUT_OF_MEMORY;
    } catch (const std::exception& error) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_ERROR, "%s: %s", call, error.what());
        return MEDIA_CONTENT_ERROR_DB_FAILED;
    }
}

// ---- connection -------------------------------------------------------------------------------

void Service::Configure(const MediaServiceOptions& options) {
    // SQLite's own account of its memory takes a lock of the whole process for every block; nobody
    // asks for it. Refused, and no matter, when a database has been open before.
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options = options;
}

int Service::Connect() {
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    // None although there are connections: a damaged database that could not be made anew.
    if (m_connections == 0 || !Current()) {
        const int error = OpenSession();
        if (error != MEDIA_CONTENT_ERROR_NONE) return error;
    }
    ++m_connections;
    return MEDIA_CONTENT_ERROR_NONE;
}

int Service::Disconnect() {
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    if (m_connections == 0) return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    if (--m_connections == 0) CloseSession();
    return MEDIA_CONTENT_ERROR_NONE;
}

void Service::Shutdown() {
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    m_connections = 0;
    CloseSession();
    m_activities.Stop();
}

// With the record of each of `mounts`. Damage that shows only when they are written is answered
// as damage found at the opening is. Throws DatabaseError.
SessionPtr Service::NewSession(const std::vector<std::shared_ptr<Mount>>& mounts) {
    MediaServiceOptions options;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        options = m_options;
    }
    for (bool again = false;; again = true) {
        auto session = std::make_shared<Session>(options, m_updates);
        const std::string file = session->store.File();
        try {
            for (const auto& mount : mounts) Record(*session, *mount);
            return session;
        } catch (const DatabaseError& error) {
            if (again || !error.MeansDamage()) throw;
        }
        session.reset();
        MoveDamagedAside(file, "found damaged");
    }
}

int Service::OpenSession() {
    return Guarded("media_content_connect", [&] {
        const std::vector<std::shared_ptr<Mount>> mounts = Mounts();
        const SessionPtr session = NewSession(mounts);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_session = session;
        }
        for (const auto& mount : mounts) StartFullScan(session, mount);
        StartPurge(session);
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

void Service::CloseSession() {
    SessionPtr session;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        session.swap(m_session);
    }
    const auto all = [](const Activity&) { return true; };
    m_activities.Cancel(all);
    m_activities.Wait(all);
    m_activities.Stop();  // only its idle threads are left
    for (const auto& mount : Mounts()) {
        mount->number = 0;
        mount->scanStatus = MEDIA_STORAGE_SCAN_STOPPED;
    }
}

SessionPtr Service::Current() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_session;
}

SessionPtr Service::Open() {
    const SessionPtr session = Current();
    if (!session || !session->store.IsDamaged()) return session;
    ReplaceDamaged(session);
    return Current();
}

void Service::ReplaceDamaged(const SessionPtr& session) {
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    if (Current() != session) return;  // somebody else has done it
    CloseSession();
    MoveDamagedAside(session->store.File(), "found damaged");
    OpenSession();
}

// ---- storages ---------------------------------------------------------------------------------

std::vector<std::shared_ptr<Mount>> Service::Mounts() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_mounts;
}

std::shared_ptr<Mount> Service::MountAt(const std::string& mountPath) {
    const std::string path = WithoutSlash(mountPath);
    for (const auto& mount : Mounts())
        if (mount->path == path) return mount;
    return nullptr;
}

std::shared_ptr<Mount> Service::FindMount(const std::string& storageId) {
    for (const auto& mount : Mounts())
        if (mount->id == storageId && mount->number != 0) return mount;
    return nullptr;
}

Scope Service::ScopeOf(const media_filter_s* filter) {
    Scope scope;
    for (const auto& mount : Mounts()) {
        const int64_t number = mount->number;
        if (number == 0) continue;
        if (filter && filter->hasStorage && filter->storage != mount->id) continue;
        scope.emplace(number, mount->path);
    }
    return scope;
}

// The best name that no other mounted storage bears: sticks copied whole share their UUIDs.
std::string Service::ChooseIdentity(const MountedStorage& storage, const std::string& path) {
    std::vector<std::string> names;
    if (!storage.uuid.empty()) names.push_back("uuid:" + storage.uuid);
    if (!storage.serial.empty())
        names.push_back("serial:" + storage.serial + '#' + std::to_string(storage.partition));
    names.push_back("path:" + path);
    const auto mounts = Mounts();
    for (const std::string& name : names)
        if (std::none_of(mounts.begin(), mounts.end(),
                         [&](const auto& mount) { return mount->identity == name; }))
            return name;
    return names.back();
}

void Service::Record(Session& session, Mount& mount) {
    mount.number =
        session.store.Write().RecordStorage(mount.id, mount.identity, mount.path, time(nullptr));
}

// Each first client finds all storages anew: an operator is told of those that nobody found before.
void Service::TellMounted(Mount& mount) {
    mount.isNews = m_told.insert(mount.identity + ' ' + mount.path).second;
    PLATFORM_LOG("MEDIA_CONTENT", mount.isNews ? int{LOG_INFO} : int{DLOG_PRIORITY_PROGRESS},
                 "storage \"%s\" (%s) is mounted at %s", mount.name.c_str(),
                 FileSystemAt(mount.path).c_str(), mount.path.c_str());
}

// A storage is given back as well when the last client leaves.
void Service::TellGone(const Mount& mount) {
    if (IsStillThere(mount)) return;
    m_told.erase(mount.identity + ' ' + mount.path);
    PLATFORM_LOG("MEDIA_CONTENT", LOG_INFO, "storage \"%s\" at %s is gone", mount.name.c_str(),
                 mount.path.c_str());
}

void Service::Mounted(const MountedStorage& storage) {
    Unmounted(storage.mountPath);
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    const auto mount = std::make_shared<Mount>();
    mount->path = WithoutSlash(storage.mountPath);
    mount->realPath = WithoutSlash(RealPath(storage.mountPath));
    if (mount->realPath.empty()) mount->realPath = mount->path;
    mount->identity = ChooseIdentity(storage, mount->path);
    mount->id = StorageIdFor(mount->identity);
    stat(mount->path.c_str(), &mount->root);
    mount->name = storage.label.empty() ? LastPart(mount->path) : storage.label;
    TellMounted(*mount);
    const SessionPtr session = Current();
    try {
        if (session) Record(*session, *mount);
    } catch (...) {
        ReportFailure("StorageMounted", session.get());
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mounts.push_back(mount);
}

void Service::Unmounted(const std::string& mountPath) {
    std::shared_ptr<Mount> gone;
    SessionPtr session;
    {
        std::lock_guard<std::mutex> lifecycle(m_lifecycle);
        gone = MountAt(mountPath);
        if (!gone) return;
        gone->gone = true;
        session = Current();
        TellGone(*gone);
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mounts.erase(std::find(m_mounts.begin(), m_mounts.end(), gone));
    }
    const auto ofThis = [&](const Activity& activity) { return activity.mount == gone; };
    m_activities.Cancel(ofThis);
    m_activities.Wait(ofThis);
    if (session && gone->number != 0)
        Guarded("StorageUnmounted", [&] {
            session->store.Write().StorageWent(gone->number, time(nullptr));
            return 0;
        });
}

std::shared_ptr<Mount> Service::Resolve(const std::string& path, std::string& below) {
    std::shared_ptr<Mount> best;
    for (const auto& mount : Mounts()) {
        std::string rest;
        if (mount->number == 0 || !IsBelow(path, mount->realPath, rest)) continue;
        if (best && best->realPath.size() > mount->realPath.size()) continue;
        best = mount;
        below = rest;
    }
    return best;
}

}  // namespace platform
