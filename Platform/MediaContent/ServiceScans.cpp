// The service's work on files: scans, and single items that clients add and remove.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <future>
#include <memory>
#include <set>
#include <utility>

#include "Log/Log.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Paths.h"
#include "MediaContent/Service.h"
#include "Process/Heap.h"

namespace platform {
namespace {

constexpr int64_t FORGET_AFTER_S = 180 * 24 * 3600;
constexpr int PURGE_BATCH = 500;  // items a transaction

using Clock = std::chrono::steady_clock;

// A scan that found nothing to do on a storage that was there before is no news, nor is one that
// was cancelled: the storage is gone, as is told already, or the last client.
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
    const int error = Submit(activity, [=] { RunFullScan(session, activity); });
    if (error != MEDIA_CONTENT_ERROR_NONE) mount->scanStatus = MEDIA_STORAGE_SCAN_STOPPED;
}

// Nothing is thrown when there is no thread to be had: the log tells, the next occasion tries
// again.
int Service::Submit(const ActivityPtr& activity, std::function<void()> run) {
    return Guarded("scan", [&] {
        m_activities.Submit(activity, std::move(run));
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

// A scan that ends because the database is closed is not reported: it goes on at the next
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
    const auto mount = real.empty() ? nullptr : Resolve(WithoutSlash(real), below);
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
    const auto mount = MountAt(mountPath);
    if (!session || !mount || mount->number == 0) return;
    std::set<std::pair<std::string, bool>> targets;  // a path once, whole or only itself
    for (const std::string& path : paths) {
        std::string below;
        if (!IsBelow(WithoutSlash(path), mount->path, below)) continue;
        if (below.empty()) return StartFullScan(session, mount);
        // That file speaks for all that lies below its folder.
        targets.insert({ParentPath(below), LastPart(below) == ".nomedia"});
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

// Storages that nobody has plugged in for long give their place back, a little at a time.
void Service::StartPurge(const SessionPtr& session) {
    const auto activity = std::make_shared<Activity>();
    Submit(activity, [session, activity] {
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

namespace {

// An item that somebody asks for by its path: it stays, whatever its kind.
Change PinnedChange(const std::string& path, const struct stat& facts) {
    Change change;
    const char* mime = "application/octet-stream";
    change.folder = ParentPath(path);
    change.name = LastPart(path);
    LookUpMediaType(change.name, change.type, mime);
    change.mime = mime;
    change.facts = FactsOf(facts);
    change.pinned = true;
    return change;
}

// Before the files of any scan, and behind other registrations on the same storage at most.
bool ReadNow(Session& session, const Activity& activity, int root, std::vector<Change>& changes) {
    const auto task = std::make_shared<std::packaged_task<bool()>>(
        [&] { return ReadMetadataInto(session.extractor, root, changes, activity.cancel); });
    std::future<bool> isRead = task->get_future();
    session.workers.Submit(activity.mount.get(), [task] { (*task)(); });
    return isRead.get();
}

}  // namespace

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
    const UniqueFd root(open(mount->path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd file = OpenBelow(root.Get(), below, O_PATH);
    struct stat facts {};
    if (!file || fstat(file.Get(), &facts) != 0) return MEDIA_CONTENT_ERROR_NOT_FOUND;
    if (!S_ISREG(facts.st_mode)) return MEDIA_CONTENT_ERROR_UNSUPPORTED;

    std::vector<Change> changes{PinnedChange(below, facts)};
    if (!ReadNow(*session, *activity, root.Get(), changes)) return MEDIA_CONTENT_ERROR_CANCELLED;
    const std::vector<Done> done = session->store.Write().Apply(storage, changes, time(nullptr));
    if (done.empty()) return MEDIA_CONTENT_ERROR_DB_FAILED;
    m_updates.Report(UpdateOf(done[0], session->store.ItemId(done[0].number), mount->path));
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
    m_updates.Report(UpdateOf(done, mediaId, mounted == scope.end() ? "" : mounted->second));
    return MEDIA_CONTENT_ERROR_NONE;
}

}  // namespace platform
