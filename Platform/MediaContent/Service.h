// The process's single media database service: connections, mounted storages, scans.
#ifndef PLATFORM_MEDIA_CONTENT_SERVICE_H
#define PLATFORM_MEDIA_CONTENT_SERVICE_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/Activity.h"
#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/MediaService.h"
#include "MediaContent/Reader.h"
#include "MediaContent/Scan.h"
#include "MediaContent/Storages.h"
#include "MediaContent/Store.h"
#include "MediaContent/Updates.h"
#include "MediaContent/WorkerPool.h"

namespace platform {

// Everything that exists while the process holds a connection. Running scans and calls hold it by a
// shared pointer.
struct Session {
    Session(const MediaServiceOptions& options, Updates& updates);
    Store store;
    ExtractorPool extractor;
    WorkerPool workers;
    ScanTools tools;
};
using SessionPtr = std::shared_ptr<Session>;

// Thread-safe. Mounted storages are remembered whether the database is open or not.
class Service {
public:
    // Never destroyed, so that late calls are safe until the process ends.
    static Service& Get();

    void Configure(const MediaServiceOptions& options);
    int Connect();
    int Disconnect();
    void Shutdown();

    void Mounted(const MountedStorage& storage);
    void Unmounted(const std::string& mountPath);
    void Changed(const std::string& mountPath, const std::vector<std::string>& paths);
    std::vector<ScanProgress> Scans();

    // Null while nobody is connected. Replaces a damaged database first.
    SessionPtr Open();
    const Storages& GetStorages() const { return m_storages; }

    int ScanFolder(const char* path, bool recursive, media_scan_completed_cb callback,
                   void* userData);
    int Insert(const char* path, MediaRecord& record);
    int Remove(const char* mediaId);
    Updates& GetUpdates() { return m_updates; }

private:
    Service() = default;
    SessionPtr Current();
    SessionPtr NewSession(const std::vector<MountPtr>& mounts);
    int OpenSession();
    void CloseSession();
    void ReplaceDamaged(const SessionPtr& session);
    void Record(Session& session, Mount& mount);
    int Submit(const ActivityPtr& activity, std::function<void()> run);
    void StartFullScan(const SessionPtr& session, const MountPtr& mount);
    void RunFullScan(const SessionPtr& session, const ActivityPtr& activity);
    media_content_error_e RunShortScan(const SessionPtr& session, const ActivityPtr& activity,
                                       const std::vector<ScanTarget>& targets);
    void ReportScanEnd(Mount& mount, media_content_error_e error);
    void StartPurge(const SessionPtr& session);

    std::mutex m_lifecycle;  // opening, closing, mounting, unmounting; taken before m_mutex
    int m_connections = 0;   // guarded by m_lifecycle

    std::mutex m_mutex;
    MediaServiceOptions m_options;  // guarded by m_mutex, as is everything below
    SessionPtr m_session;

    Storages m_storages;  // synchronises itself, as does m_updates
    Updates m_updates;
    ActivityQueue m_activities;
};

// Runs the body of a C call; turns a null session, exceptions and damage into error codes.
template <typename Body>
int Guarded(const char* call, Body body);
template <typename Body>
int WithDatabase(const char* call, Body body);

int ReportFailure(const char* call, Session* session);

template <typename Body>
int Guarded(const char* call, Body body) {
    try {
        return body();
    } catch (...) {
        return ReportFailure(call, nullptr);
    }
}

template <typename Body>
int WithDatabase(const char* call, Body body) {
    SessionPtr session;
    try {
        session = Service::Get().Open();
        return session ? body(*session) : MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    } catch (...) {
        return ReportFailure(call, session.get());
    }
}

}  // namespace platform

#endif
