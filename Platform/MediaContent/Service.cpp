#include "MediaContent/Service.h"

#include <limits.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "Log/Log.h"
#include "MediaContent/DatabaseFile.h"

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
    // SQLite's memory statistics take a process-wide lock for every block, and nothing reads them.
    // The call fails, harmlessly, when a database has been opened before.
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options = options;
}

int Service::Connect() {
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    // No session although there are connections: a damaged database could not be recreated.
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

// Also records each of `mounts`. Damage that shows only when they are written is handled like
// damage found on opening. Throws DatabaseError.
SessionPtr Service::NewSession(const std::vector<MountPtr>& mounts) {
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
        const std::vector<MountPtr> mounts = m_storages.All();
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
    m_activities.Stop();  // only idle threads are left
    for (const auto& mount : m_storages.All()) {
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
    if (Current() != session) return;  // another thread has done it
    CloseSession();
    MoveDamagedAside(session->store.File(), "found damaged");
    OpenSession();
}

// ---- storages ---------------------------------------------------------------------------------

void Service::Record(Session& session, Mount& mount) {
    mount.number =
        session.store.Write().RecordStorage(mount.id, mount.identity, mount.path, time(nullptr));
}

void Service::Mounted(const MountedStorage& storage) {
    Unmounted(storage.mountPath);
    std::lock_guard<std::mutex> lifecycle(m_lifecycle);
    const MountPtr mount = m_storages.Make(storage);
    const SessionPtr session = Current();
    try {
        if (session) Record(*session, *mount);
    } catch (...) {
        ReportFailure("StorageMounted", session.get());
    }
    m_storages.Add(mount);
}

void Service::Unmounted(const std::string& mountPath) {
    MountPtr gone;
    SessionPtr session;
    {
        std::lock_guard<std::mutex> lifecycle(m_lifecycle);
        gone = m_storages.Take(mountPath);
        session = Current();
    }
    if (!gone) return;
    const auto ofThis = [&](const Activity& activity) { return activity.mount == gone; };
    m_activities.Cancel(ofThis);
    m_activities.Wait(ofThis);
    if (session && gone->number != 0)
        Guarded("StorageUnmounted", [&] {
            session->store.Write().StorageWent(gone->number, time(nullptr));
            return 0;
        });
}

}  // namespace platform
