// The service's scans.
#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <memory>
#include <set>
#include <utility>

#include "Log/Log.h"
#include "MediaContent/Paths.h"
#include "MediaContent/Service.h"
#include "Process/Heap.h"

namespace platform {
namespace {

constexpr int64_t kForgetAfterS = 180 * 24 * 3600;
constexpr int kPurgeBatch = 500;  // items per transaction

using Clock = std::chrono::steady_clock;

// Not logged: a scan that found nothing to do on a storage that was there before, and a cancelled
// scan, since either its storage is gone, which is logged already, or the last client is.
void LogScan(const Activity& scan, media_content_error_e error, Clock::time_point start) {
    const Mount& mount = *scan.mount;
    const std::chrono::duration<double> took = Clock::now() - start;
    const auto seen = static_cast<unsigned long long>(scan.filesSeen);
    const auto read = static_cast<unsigned long long>(scan.filesRead);
    if (error == MEDIA_CONTENT_ERROR_NONE)
        PLATFORM_LOG("MEDIA_CONTENT",
                     mount.isNews || read > 0 ? int{LOG_INFO} : int{DLOG_PRIORITY_PROGRESS},
                     "scan of %s is complete: %llu media files, %llu of them read, %.1f s",
                     mount.path.c_str(), seen, read, took.count());
    else if (error == MEDIA_CONTENT_ERROR_CANCELLED)
        PLATFORM_LOG("MEDIA_CONTENT", DLOG_PRIORITY_PROGRESS,
                     "scan of %s is cancelled after %llu media files, %.1f s", mount.path.c_str(),
                     seen, took.count());
    else
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "scan of %s ended with error %d",
                     mount.path.c_str(), error);
}

}  // namespace

void Service::StartFullScan(const SessionPtr& session, const MountPtr& mount) {
    // A scan that has not started yet will see all changes made so far.
    if (m_activities.IsQueued(
            [&](const Activity& waiting) { return waiting.full && waiting.mount == mount; }))
        return;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    activity->full = true;
    mount->scanStatus = MEDIA_STORAGE_SCAN_PREPARING;
    const int error = Submit(activity, [=] { RunFullScan(session, activity); });
    if (error != MEDIA_CONTENT_ERROR_NONE) mount->scanStatus = MEDIA_STORAGE_SCAN_STOPPED;
}

// Does not throw when no thread can be started: it logs that, and the next opportunity tries again.
int Service::Submit(const ActivityPtr& activity, std::function<void()> run) {
    return Guarded("scan", [&] {
        m_activities.Submit(activity, std::move(run));
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

// A scan that ends because the database is closed is not reported: it resumes at the next
// connection.
void Service::RunFullScan(const SessionPtr& session, const ActivityPtr& activity) {
    Mount& mount = *activity->mount;
    mount.scanStatus = MEDIA_STORAGE_SCAN_RUNNING;
    const auto start = Clock::now();
    media_content_error_e error = MEDIA_CONTENT_ERROR_NONE;
    do {
        activity->again = false;
        activity->filesSeen = activity->filesRead = 0;
        error = Scan(session->tools, *activity, {{"", true}}).Run();
    } while (error == MEDIA_CONTENT_ERROR_NONE && activity->again);
    // The session outlives its workers.
    session->workers.Submit(nullptr, [tools = &session->extractor] {
        tools->EndIdleHelpers();
        TrimHeap();
    });
    mount.scanStatus = error == MEDIA_CONTENT_ERROR_NONE ? MEDIA_STORAGE_SCAN_COMPLETE
                                                         : MEDIA_STORAGE_SCAN_STOPPED;
    LogScan(*activity, error, start);
    if (Current() == session) ReportScanEnd(mount, error);
}

media_content_error_e Service::RunShortScan(const SessionPtr& session, const ActivityPtr& activity,
                                            const std::vector<ScanTarget>& targets) {
    if (activity->cancel) return MEDIA_CONTENT_ERROR_CANCELLED;
    const media_content_error_e error = Scan(session->tools, *activity, targets).Run();
    if (activity->again) StartFullScan(session, activity->mount);
    return error;
}

void Service::ReportScanEnd(Mount& mount, media_content_error_e error) {
    Update update;
    update.error = error;
    update.item = MEDIA_CONTENT_ITEM_DIRECTORY;
    update.id = mount.id;
    update.path = mount.path;
    m_updates.Report(std::move(update));
}

int Service::ScanFolder(const char* path, bool recursive, media_scan_completed_cb callback,
                        void* userData) {
    const SessionPtr session = Open();
    if (!session) return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    const std::string real = RealPath(path);
    std::string below;
    const auto mount = real.empty() ? nullptr : m_storages.Resolve(WithoutSlash(real), below);
    struct stat facts {};
    if (!mount || stat(real.c_str(), &facts) != 0 || !S_ISDIR(facts.st_mode))
        return MEDIA_CONTENT_ERROR_NOT_FOUND;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    return Submit(activity, [=] {
        callback(RunShortScan(session, activity, {{below, recursive}}), userData);
    });
}

void Service::Changed(const std::string& mountPath, const std::vector<std::string>& paths) {
    const SessionPtr session = Current();
    const auto mount = m_storages.At(mountPath);
    if (!session || !mount || mount->number == 0) return;
    std::set<std::pair<std::string, bool>> targets;  // each path once; true: recursive
    for (const std::string& path : paths) {
        std::string below;
        if (!IsInside(WithoutSlash(path), mount->path, below)) continue;
        if (below.empty()) return StartFullScan(session, mount);
        // A .nomedia file affects everything below its folder.
        targets.insert({ParentPath(below), LastPart(below) == ".nomedia"});
        struct stat facts {};
        if (lstat(path.c_str(), &facts) != 0 || S_ISDIR(facts.st_mode))
            targets.insert({below, true});  // a folder, or what may have been one
    }
    if (paths.empty()) return StartFullScan(session, mount);
    std::vector<ScanTarget> list;
    list.reserve(targets.size());
    for (const auto& [path, recursive] : targets) list.push_back({path, recursive});
    if (list.empty()) return;
    const auto activity = std::make_shared<Activity>();
    activity->mount = mount;
    Submit(activity, [=] { RunShortScan(session, activity, list); });
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

// Storages that have not been plugged in for long give back their space, a little at a time.
void Service::StartPurge(const SessionPtr& session) {
    const auto activity = std::make_shared<Activity>();
    Submit(activity, [session, activity] {
        Guarded("purge", [&] {
            const int64_t before = time(nullptr) - kForgetAfterS;
            for (const int64_t storage : Reader(session->store).StoragesUnseenSince(before))
                while (!activity->cancel &&
                       !session->store.Write().Purge(storage, before, kPurgeBatch))
                    continue;
            return 0;
        });
    });
}

}  // namespace platform
