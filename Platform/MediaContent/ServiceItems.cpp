// Single items that clients add and remove.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <future>
#include <memory>
#include <utility>

#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Paths.h"
#include "MediaContent/Service.h"

namespace platform {
namespace {

// An item that a client added by its path: it stays, whatever its kind.
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

// Runs ahead of the files of any scan, and waits at most for other registrations on this storage.
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
    const auto mount = m_storages.Resolve(real, below);
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
    // An item of an absent storage is hidden and cannot be deleted.
    const Scope scope = m_storages.ScopeOf(nullptr);
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
