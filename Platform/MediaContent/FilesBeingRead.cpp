#include "MediaContent/FilesBeingRead.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "Log/Log.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/Protocol.h"
#include "MediaContent/Walk.h"

namespace platform {
namespace {

constexpr size_t kGroup = 32;  // files handed to a worker at once
// Files held by the workers, some megabytes: the walk continues while the first helpers start.
constexpr size_t kMaxReading = 128 * kGroup;

// A file that cannot be checked now, for example for lack of descriptors, still exists: it gets
// facts that no file has, so that the next scan treats it as changed. `error` is the errno of
// opening it.
void LearnFacts(Change& change, const UniqueFd& file, int error) {
    struct stat facts {};
    if (!file && !MeansGone(error)) change.facts = {0, 0, 0, 0};
    if (file && fstat(file.Get(), &facts) == 0 && S_ISREG(facts.st_mode))
        change.facts = FactsOf(facts);
}

// Opens files that are mostly in the same folder as the one before, so that the folder is resolved
// once. On failure the descriptor is empty and errno says why.
class FolderOpener {
public:
    explicit FolderOpener(int root) : m_root(root) {}

    UniqueFd OpenFile(const std::string& folder, const std::string& name, int flags) {
        if (!m_folder || folder != m_path) {
            m_folder = OpenBelow(m_root, folder, O_PATH | O_DIRECTORY);
            m_path = folder;
        }
        return m_folder ? OpenBelow(m_folder.Get(), name, flags) : UniqueFd();
    }

private:
    const int m_root;
    std::string m_path;
    UniqueFd m_folder;
};

// Takes over what was read. What the name leaves open, music or a film, the content decides.
void TakeResult(Change& change, ExtractResult&& result) {
    change.metadata = std::move(result.metadata);
    if (change.metadata.kind == MEDIA_CONTENT_TYPE_OTHERS) return;
    change.type = change.metadata.kind;
    change.mime = MimeOfKind(change.mime, change.type);
}

// A file whose first and last bytes cannot be read is not a bad file: its stick is gone or failing.
bool IsReadable(int file) {
    struct stat facts {};
    char byte = 0;
    if (fstat(file, &facts) != 0 || !S_ISREG(facts.st_mode)) return false;
    return facts.st_size == 0 ||
           (pread(file, &byte, 1, 0) == 1 && pread(file, &byte, 1, facts.st_size - 1) == 1);
}

}  // namespace

FileFacts FactsOf(const struct stat& facts) {
    return {facts.st_size, facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec,
            static_cast<int64_t>(facts.st_ino)};
}

bool ReadMetadataInto(ExtractorPool& extractor, int root, std::vector<Change>& changes,
                      const std::atomic<bool>& cancel, LostTime* lost) {
    std::vector<UniqueFd> handles;
    std::vector<ExtractFile> files;
    std::vector<Change*> asked;
    FolderOpener folder(root);
    for (Change& change : changes) {
        change.state = ItemState::Read;
        if (change.type == MEDIA_CONTENT_TYPE_OTHERS) continue;
        UniqueFd file =
            folder.OpenFile(change.folder, change.name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
        change.state = ItemState::Unread;
        if (change.facts.size < 0 && file) LearnFacts(change, file, 0);
        if (change.facts.size < 0 && !file) {  // exists, but without permission to read it
            const UniqueFd seen = folder.OpenFile(change.folder, change.name, O_PATH);
            LearnFacts(change, seen, errno);
        }
        if (!file || change.facts.size < 0) continue;
        // The helper reads this window first. Requesting it now lets the beginnings of the whole
        // group load from the stick while the helper reads the first file.
        posix_fadvise(file.Get(), 0, kReadWindow, POSIX_FADV_WILLNEED);
        files.push_back({file.Get(), change.type, change.mime.c_str()});
        handles.push_back(std::move(file));
        asked.push_back(&change);
    }
    std::vector<ExtractResult> results = extractor.Extract(files, cancel, lost);
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i].status == ExtractStatus::Cancelled) return false;
        if (results[i].status == ExtractStatus::Ok) asked[i]->state = ItemState::Read;
        if (results[i].status == ExtractStatus::PassedOver) asked[i]->state = ItemState::PassedOver;
        if (results[i].status == ExtractStatus::Failed && IsReadable(files[i].fd))
            asked[i]->state = ItemState::Failed;
        TakeResult(*asked[i], std::move(results[i]));
    }
    return !cancel;
}

FilesBeingRead::FilesBeingRead(ExtractorPool& extractor, WorkerPool& workers, Activity& activity)
    : m_extractor(extractor),
      m_workers(workers),
      m_activity(activity),
      m_lost([this] { m_workers.SetSlow(this); }) {}

FilesBeingRead::~FilesBeingRead() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_resultCame.wait(lock, [this] { return m_reading == 0; });
}

void FilesBeingRead::Add(int root, Change change) {
    m_root = root;
    m_group.push_back(std::move(change));
    if (m_group.size() >= kGroup) HandOut();
}

void FilesBeingRead::HandOut() {
    if (m_group.empty()) return;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_resultCame.wait(lock, [this] { return m_reading < kMaxReading; });
        m_reading += m_group.size();
    }
    m_workers.Submit(this, [this, root = m_root, group = std::exchange(m_group, {})]() mutable {
        ReadGroup(root, std::move(group));
    });
}

// Runs on a worker's thread.
void FilesBeingRead::ReadGroup(int root, std::vector<Change> group) {
    const size_t files = group.size();
    bool given = false;
    try {
        const std::atomic<bool>& cancel = m_activity.cancel;
        given = !cancel && ReadMetadataInto(m_extractor, root, group, cancel, &m_lost);
    } catch (const std::exception& error) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_ERROR, "metadata of %zu files: %s", files, error.what());
    }
    if (given) NotePassedOver(group);
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Change& change : group) {
        const bool news = !change.retry || change.state != ItemState::Unread;
        const bool isThere = change.facts.size >= 0;
        if (given && isThere && news) m_results.push_back(std::move(change));
    }
    m_reading -= files;
    m_hasResults = true;
    m_resultCame.notify_all();
}

void FilesBeingRead::NotePassedOver(const std::vector<Change>& group) {
    if (std::none_of(group.begin(), group.end(),
                     [](const Change& change) { return change.state == ItemState::PassedOver; }))
        return;
    m_activity.mount->hasPassedOver = true;
    if (m_toldOfPassedOver.exchange(true)) return;
    PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING,
                 "scan of %s: files that cannot be read have taken %lld ms: the others are listed "
                 "by their names, and read once something on the storage has changed",
                 m_activity.mount->path.c_str(), static_cast<long long>(m_lost.Milliseconds()));
}

void FilesBeingRead::Take(std::vector<Change>& changes) {
    if (!m_hasResults) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    MoveResults(changes);
}

void FilesBeingRead::TakeAll(std::vector<Change>& changes) {
    HandOut();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_resultCame.wait(lock, [this] { return m_reading == 0; });
    MoveResults(changes);
}

// The caller holds the lock.
void FilesBeingRead::MoveResults(std::vector<Change>& changes) {
    m_hasResults = false;
    std::move(m_results.begin(), m_results.end(), std::back_inserter(changes));
    m_results.clear();
}

}  // namespace platform
