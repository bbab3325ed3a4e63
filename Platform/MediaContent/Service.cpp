#include "MediaContent/Service.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <thread>
#include <utility>

#include "Log/Log.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Schema.h"

namespace platform {
namespace {

constexpr int64_t FORGET_AFTER_S = 180 * 24 * 3600;
constexpr int PURGE_BATCH = 500;  // items a transaction

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
    extractor.workers = Cores();
    return extractor;
}

std::string DefaultDatabase() {
    if (const char* state = getenv("XDG_STATE_HOME"); state && *state)
        return std::string(state) + "/contents-mgr/media.db";
    const char* home = getenv("HOME");
    if (getuid() == 0 || !home) return "/var/lib/contents-mgr/media.db";
    return std::string(home) + "/.local/state/contents-mgr/media.db";
}

std::string WithoutSlash(std::string path) {
    while (!path.empty() && path.back() == '/') path.pop_back();
    return path;
}

// Empty with errno when there is no such path.
std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : "";
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

bool IsBelow(const std::string& path, const std::string& folder, std::string& below) {
    if (path == folder) {
        below.clear();
        return true;
    }
    if (path.compare(0, folder.size() + 1, folder + '/') != 0) return false;
    below = path.substr(folder.size() + 1);
    return true;
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

int Service::OpenSession() {
    return Guarded("media_content_connect", [&] {
        MediaServiceOptions options;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            options = m_options;
        }
        const auto session = std::make_shared<Session>(options, m_updates);
        const std::vector<std::shared_ptr<Mount>> mounts = Mounts();
        for (const auto& mount : mounts) Record(*session, *mount);
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
    MoveAside(session->store.File(), "found damaged");
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

void Service::Mounted(const MountedStorage& storage) {
    Unmounted(storage.mountPath);
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    const auto mount = std::make_shared<Mount>();
    mount->path = WithoutSlash(storage.mountPath);
    mount->announced = storage.announced;
    mount->realPath = WithoutSlash(RealPath(storage.mountPath));
    if (mount->realPath.empty()) mount->realPath = mount->path;
    mount->identity = ChooseIdentity(storage, mount->path);
    mount->id = StorageIdFor(mount->identity);
    const SessionPtr session = Current();
    const int error = Guarded("StorageMounted", [&] {
        if (session) Record(*session, *mount);
        return 0;
    });
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mounts.push_back(mount);
    }
    if (session && error == 0) StartFullScan(session, mount);
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
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mounts.erase(std::find(m_mounts.begin(), m_mounts.end(), gone));
    }
    const auto ofThis = [&](const Activity& activity) { return activity.mount == gone; };
    m_activities.Cancel(ofThis);
    m_activities.Wait(ofThis);
    if (session && gone->number != 0)
        Guarded("StorageUnmounted", [&] {
            session->store.Write().TouchStorage(gone->number, time(nullptr));
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

// ---- scans ------------------------------------------------------------------------------------

void Service::StartFullScan(const SessionPtr& session, const std::shared_ptr<Mount>& mount) {
    // One that has not begun yet will see whatever has changed until now.
    if (m_activities.IsQueued(
            [&](const Activity& waiting) { return waiting.full && waiting.mount == mount; }))
        return;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    activity->full = true;
    mount->scanStatus = MEDIA_STORAGE_SCAN_PREPARING;
    m_activities.Submit(activity, [this, session, activity] { RunFullScan(session, activity); });
}

// A scan that ends because the database is closed is not reported: it goes on at the next
// connection.
void Service::RunFullScan(const SessionPtr& session, const ActivityPtr& activity) {
    Mount& mount = *activity->mount;
    mount.scanStatus = MEDIA_STORAGE_SCAN_RUNNING;
    const media_content_error_e error = Scan(session->tools, *activity, {{"", true}}).Run();
    session->extractor.EndIdleHelpers();
    malloc_trim(0);
    mount.scanStatus = error == MEDIA_CONTENT_ERROR_NONE ? MEDIA_STORAGE_SCAN_COMPLETE
                                                         : MEDIA_STORAGE_SCAN_STOPPED;
    if (error != MEDIA_CONTENT_ERROR_NONE)
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "scan of %s ended with error %d",
                     mount.path.c_str(), error);
    if (Current() != session) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        mount.endIsHeld = !mount.announced;
        mount.heldError = error;
        if (mount.endIsHeld) return;
    }
    ReportScanEnd(mount, error);
}

void Service::ReportScanEnd(Mount& mount, media_content_error_e error) {
    Update update;
    update.error = error;
    update.item = MEDIA_CONTENT_ITEM_DIRECTORY;
    update.id = mount.id;
    update.path = mount.path;
    m_updates.Report(std::move(update));
}

void Service::Announced(const std::string& mountPath) {
    const auto mount = MountAt(mountPath);
    if (!mount) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        mount->announced = true;
        if (!std::exchange(mount->endIsHeld, false)) return;
    }
    ReportScanEnd(*mount, mount->heldError);
}

int Service::ScanFolder(const char* path, bool recursive, media_scan_completed_cb callback,
                        void* userData) {
    const SessionPtr session = Open();
    if (!session) return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    const std::string real = RealPath(path);
    std::string below;
    const auto mount = real.empty() ? nullptr : Resolve(WithoutSlash(real), below);
    struct stat facts {};
    if (!mount || stat(real.c_str(), &facts) != 0 || !S_ISDIR(facts.st_mode))
        return MEDIA_CONTENT_ERROR_NOT_FOUND;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    m_activities.Submit(activity, [=] {
        const media_content_error_e error =
            activity->cancel ? MEDIA_CONTENT_ERROR_CANCELLED
                             : Scan(session->tools, *activity, {{below, recursive}}).Run();
        if (callback) callback(error, userData);
    });
    return MEDIA_CONTENT_ERROR_NONE;
}

void Service::Changed(const std::string& mountPath, const std::vector<std::string>& paths) {
    const SessionPtr session = Current();
    const auto mount = MountAt(mountPath);
    if (!session || !mount || mount->number == 0) return;
    std::set<std::pair<std::string, bool>> targets;  // a path once, whole or only itself
    for (const std::string& path : paths) {
        std::string below;
        if (!IsBelow(WithoutSlash(path), mount->path, below)) continue;
        if (below.empty()) return StartFullScan(session, mount);
        const size_t slash = below.rfind('/');
        targets.insert({slash == std::string::npos ? "" : below.substr(0, slash), false});
        struct stat facts {};
        if (lstat(path.c_str(), &facts) != 0 || S_ISDIR(facts.st_mode))
            targets.insert({below, true});  // a folder, or what may have been one
    }
    if (paths.empty()) return StartFullScan(session, mount);
    std::vector<ScanTarget> list;
    for (const auto& [path, recursive] : targets) list.push_back({path, recursive});
    if (list.empty()) return;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    m_activities.Submit(activity, [session, activity, list] {
        if (!activity->cancel) Scan(session->tools, *activity, list).Run();
    });
}

std::vector<ScanProgress> Service::Scans() {
    std::vector<ScanProgress> scans;
    for (const ActivityPtr& activity : m_activities.List()) {
        if (!activity->mount || !activity->full) continue;
        scans.push_back({activity->mount->id, activity->mount->path, activity->filesSeen,
                         activity->filesRead, activity->walking});
    }
    return scans;
}

// Storages that nobody has plugged in for long give their place back, a little at a time.
void Service::StartPurge(const SessionPtr& session) {
    const auto activity = std::make_shared<Activity>();
    m_activities.Submit(activity, [session, activity] {
        Guarded("purge", [&] {
            const int64_t before = time(nullptr) - FORGET_AFTER_S;
            for (const int64_t storage : Reader(session->store).StoragesUnseenSince(before))
                while (!activity->cancel &&
                       !session->store.Write().Purge(storage, before, PURGE_BATCH))
                    continue;
            return 0;
        });
    });
}

// ---- single items -----------------------------------------------------------------------------

int Service::Insert(const char* path, MediaRecord& record) {
    const SessionPtr session = Open();
    if (!session) return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    const std::string real = RealPath(path);
    if (real.empty())
        return errno == EACCES ? MEDIA_CONTENT_ERROR_PERMISSION_DENIED
                               : MEDIA_CONTENT_ERROR_NOT_FOUND;
    std::string below;
    const auto mount = Resolve(real, below);
    if (!mount) return MEDIA_CONTENT_ERROR_NOT_FOUND;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    const EnteredActivity entered(m_activities, activity);
    const int64_t storage = mount->number;
    if (activity->cancel || storage == 0) return MEDIA_CONTENT_ERROR_NOT_FOUND;
    const FileHandle root(open(mount->path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const FileHandle file = OpenBelow(root.Get(), below, O_PATH);
    struct stat facts {};
    if (!file || fstat(file.Get(), &facts) != 0) return MEDIA_CONTENT_ERROR_NOT_FOUND;
    if (!S_ISREG(facts.st_mode)) return MEDIA_CONTENT_ERROR_UNSUPPORTED;

    Change change;
    const size_t slash = below.rfind('/');
    change.folder = slash == std::string::npos ? "" : below.substr(0, slash);
    change.name = slash == std::string::npos ? below : below.substr(slash + 1);
    const char* mime = "application/octet-stream";
    LookUpMediaType(change.name, change.type, mime);
    change.mime = mime;
    change.facts = {facts.st_size, facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec,
                    static_cast<int64_t>(facts.st_ino)};
    change.pinned = true;
    std::vector<Change> changes{std::move(change)};
    if (!ReadMetadataInto(session->extractor, root.Get(), changes, activity->cancel))
        return MEDIA_CONTENT_ERROR_CANCELLED;
    const std::vector<Done> done = session->store.Write().Apply(storage, changes, time(nullptr));
    if (done.empty()) return MEDIA_CONTENT_ERROR_DB_FAILED;
    Update update;
    update.update = done[0].update;
    update.type = done[0].type;
    update.id = session->store.ItemId(done[0].number);
    update.path = mount->path + '/' + done[0].path;
    update.mime = done[0].mime;
    m_updates.Report(std::move(update));
    record = Reader(session->store).FindItem({{storage, mount->path}}, done[0].number);
    return record ? MEDIA_CONTENT_ERROR_NONE : MEDIA_CONTENT_ERROR_NOT_FOUND;
}

int Service::Remove(const char* mediaId) {
    const SessionPtr session = Open();
    if (!session) return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    const int64_t number = session->store.ItemNumber(mediaId);
    // What is hidden with its storage is not there to be deleted.
    const Scope scope = ScopeOf(nullptr);
    if (number == 0 || !Reader(session->store).FindItem(scope, number))
        return MEDIA_CONTENT_ERROR_NOT_FOUND;
    int64_t storage = 0;
    Done done{};
    if (!session->store.Write().Remove(number, storage, done)) return MEDIA_CONTENT_ERROR_NOT_FOUND;
    const auto mounted = scope.find(storage);
    Update update;
    update.update = MEDIA_CONTENT_DELETE;
    update.type = done.type;
    update.id = mediaId;
    update.path = (mounted == scope.end() ? "" : mounted->second) + '/' + done.path;
    update.mime = done.mime;
    m_updates.Report(std::move(update));
    return MEDIA_CONTENT_ERROR_NONE;
}

}  // namespace platform
