#include "MediaContent/Scan.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "Log/Log.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Paths.h"

namespace platform {
namespace {

constexpr size_t kBatch = 500;          // changes per transaction
constexpr int64_t kWriteEveryMs = 500;  // for files that are slow to read, before a batch is full
constexpr uint64_t kCheckpointEvery = 20000;  // changes
constexpr int kMaxSkipLines = 20;             // log lines per scan

constexpr long kMsdosMagic = 0x4d44;
constexpr long kExfatMagic = 0x2011bab0;

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool StatBelow(int root, const std::string& folder, const std::string& name, struct stat& facts) {
    const UniqueFd opened = OpenBelow(root, folder, O_PATH | O_DIRECTORY);
    return opened && fstatat(opened.Get(), name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace

Scan::Scan(const ScanTools& tools, Activity& activity, std::vector<ScanTarget> targets)
    : m_tools(tools),
      m_activity(activity),
      m_mount(*activity.mount),
      m_storage(activity.mount->number),
      m_targets(std::move(targets)),
      m_reader(tools.store),
      m_reading(tools.extractor, tools.workers, activity) {}

media_content_error_e Scan::Run() {
    if (m_activity.cancel || m_storage == 0) return MEDIA_CONTENT_ERROR_CANCELLED;
    try {
        media_content_error_e error = OpenRoot();
        if (error == MEDIA_CONTENT_ERROR_NONE) error = WalkAll();
        if (error != MEDIA_CONTENT_ERROR_NONE) return error;
        m_reading.TakeAll(m_changes);
        if (m_activity.cancel) return MEDIA_CONTENT_ERROR_CANCELLED;
        Write(true);
        if (!RootIsTheSame()) return MEDIA_CONTENT_ERROR_NOT_FOUND;
        FindGoneFolders();
        RemoveGone();
        Write(true);
        if (m_activity.cancel) return MEDIA_CONTENT_ERROR_CANCELLED;
        if (m_activity.full) m_tools.store.Write().DropEmptyFolders(m_storage);
        if (m_activity.full && m_readPassedOver)
            m_tools.store.Write().SetToBeReadAgain(m_storage, false);
        if (m_written > 0) Checkpoint();
        return m_leftOut > 0 ? MEDIA_CONTENT_ERROR_DB_FAILED : MEDIA_CONTENT_ERROR_NONE;
    } catch (const DatabaseError& error) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_ERROR, "scan of %s: %s", m_mount.path.c_str(),
                     error.what());
        if (error.MeansDamage()) m_tools.store.ReportDamage();
        return MEDIA_CONTENT_ERROR_DB_FAILED;
    } catch (const std::exception& error) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_ERROR, "scan of %s: %s", m_mount.path.c_str(),
                     error.what());
        return MEDIA_CONTENT_ERROR_OUT_OF_MEMORY;
    }
}

media_content_error_e Scan::OpenRoot() {
    m_root = UniqueFd(open(m_mount.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct statfs fileSystem {};
    if (!m_root || fstat(m_root.Get(), &m_rootFacts) != 0) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "scan of %s: %s", m_mount.path.c_str(),
                     strerror(errno));
        return errno == EACCES ? MEDIA_CONTENT_ERROR_PERMISSION_DENIED
                               : MEDIA_CONTENT_ERROR_NOT_FOUND;
    }
    if (fstatfs(m_root.Get(), &fileSystem) == 0)
        m_stableInodes = fileSystem.f_type != kMsdosMagic && fileSystem.f_type != kExfatMagic;
    m_heldItems = m_reader.HoldsItems(m_storage);
    m_readPassedOver = m_reader.IsToBeReadAgain(m_storage);
    m_hasPassedOver = m_mount.hasPassedOver && !m_activity.full;  // a full scan finds them
    return MEDIA_CONTENT_ERROR_NONE;
}

// ---- the walk ---------------------------------------------------------------------------------

media_content_error_e Scan::WalkAll() {
    m_lastWrite = NowMs();
    // Read before the walk: a folder that is added meanwhile is not taken for missing at the end.
    for (const ScanTarget& target : m_targets) {
        if (target.recursive)
            for (std::string& folder : m_reader.KnownFolders(m_storage, target.path))
                m_knownFolders.insert(std::move(folder));
        else
            m_knownFolders.insert(target.path);
        if (target.path.empty() || !IsExcluded(m_root.Get(), target.path))
            m_stack.push_back(target);
    }
    m_activity.walking = true;
    media_content_error_e error = MEDIA_CONTENT_ERROR_NONE;
    while (!m_stack.empty() && error == MEDIA_CONTENT_ERROR_NONE) {
        const ScanTarget target = std::move(m_stack.back());
        m_stack.pop_back();
        error = m_activity.cancel ? MEDIA_CONTENT_ERROR_CANCELLED : ScanFolder(target);
    }
    m_activity.walking = false;
    return error;
}

media_content_error_e Scan::ScanFolder(const ScanTarget& target) {
    const std::string& path = target.path;
    if (m_mount.path.size() + path.size() + 2 >= PATH_MAX) {
        Skip(path, "the path is too long");
        Keep(path, 0);
        return MEDIA_CONTENT_ERROR_NONE;
    }
    const UniqueFd folder = OpenBelow(m_root.Get(), path, O_RDONLY | O_DIRECTORY);
    struct stat facts {};
    const int openError = !folder || fstat(folder.Get(), &facts) != 0 ? errno : 0;
    if (openError == 0 && facts.st_dev != m_rootFacts.st_dev) return MEDIA_CONTENT_ERROR_NONE;
    // Before the names are read: an item that somebody adds meanwhile is then in neither list.
    std::unordered_map<std::string, KnownItem> known = m_reader.KnownItems(m_storage, path);
    FolderContent content;
    const int error = openError != 0 ? openError : ReadFolder(folder, content);
    if (error != 0) {
        if (path.empty())
            return error == EACCES ? MEDIA_CONTENT_ERROR_PERMISSION_DENIED
                                   : MEDIA_CONTENT_ERROR_NOT_FOUND;
        if (!MeansGone(error)) Keep(path, error);
        return MEDIA_CONTENT_ERROR_NONE;
    }
    if (content.noMedia) return MEDIA_CONTENT_ERROR_NONE;
    if (path.empty() && LooksUnmounted(content)) {
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING,
                     "%s is empty and no mount point: what is known of it is kept",
                     m_mount.path.c_str());
        return MEDIA_CONTENT_ERROR_NOT_FOUND;
    }
    m_knownFolders.erase(path);
    ScanFiles(folder, path, content, std::move(known));
    if (!target.recursive) return MEDIA_CONTENT_ERROR_NONE;
    for (auto below = content.folders.rbegin(); below != content.folders.rend(); ++below)
        if (!IsHidden(below->name)) m_stack.push_back({JoinPath(path, below->name), true});
    return MEDIA_CONTENT_ERROR_NONE;
}

// The folder that a file system was mounted on remains after the unmount.
bool Scan::LooksUnmounted(const FolderContent& content) const {
    if (!m_activity.full || !content.empty || !m_heldItems) return false;
    struct stat parent {};
    return fstatat(m_root.Get(), "..", &parent, 0) != 0 || parent.st_dev == m_rootFacts.st_dev;
}

void Scan::ScanFiles(const UniqueFd& folder, const std::string& path, const FolderContent& content,
                     std::unordered_map<std::string, KnownItem> known) {
    for (const FolderEntry& entry : content.files) {
        if (m_activity.cancel) return;
        ScanFile(folder, path, entry.name, known);
        m_reading.Take(m_changes);
        Write(false);
    }
    for (const auto& [name, item] : known) m_gone.push_back({item.number, path, name, item.pinned});
}

// Removes what still exists from `known`.
void Scan::ScanFile(const UniqueFd& folder, const std::string& path, const std::string& name,
                    std::unordered_map<std::string, KnownItem>& known) {
    Change change;
    const char* mime = "application/octet-stream";
    const bool isMedia = LookUpMediaType(name, change.type, mime) && !IsHidden(name);
    const auto item = known.find(name);
    change.folder = path;
    change.name = name;
    change.mime = mime;
    if (!isMedia && (item == known.end() || !item->second.pinned)) return;
    if (m_mount.path.size() + path.size() + name.size() + 3 > PATH_MAX)
        return Skip(JoinPath(path, name), "the path is too long");
    ++m_activity.filesSeen;
    // There is nothing to compare with: the remaining facts are read when the file is opened.
    if (!m_heldItems && item == known.end()) return ReadNew(std::move(change));
    struct stat facts {};
    if (fstatat(folder.Get(), name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) {
        if (!MeansGone(errno)) known.erase(name);  // exists, but cannot be checked now
        return;
    }
    if (!S_ISREG(facts.st_mode)) return;
    change.facts = FactsOf(facts);
    // An item that was found elsewhere has left its place to another file.
    if (item == known.end() || m_claimed.count(item->second.number))
        return NewFile(std::move(change));
    const KnownItem was = item->second;
    known.erase(item);
    change.number = was.number;
    change.pinned = was.pinned;
    CompareFile(std::move(change), was);
}

void Scan::CompareFile(Change change, const KnownItem& known) {
    change.retry = SameContent(change.facts, known.facts);
    if (!change.retry) m_claimed.insert(change.number);
    if (!change.retry) NoteDifference();
    const bool passedOver = known.state == ItemState::PassedOver;
    if (passedOver) NotePassedOver();
    if (!change.retry || known.state == ItemState::Unread || (passedOver && m_readPassedOver)) {
        change.number = 0;  // whatever is at this place at write time
        return ReadLater(std::move(change));
    }
    if (change.facts.inode == known.facts.inode || !m_stableInodes) return;
    change.kind = Change::INODE;
    m_changes.push_back(std::move(change));
}

// Passed-over files are read when the storage has changed since: somebody may have removed the bad
// files. The decision is recorded, so it survives a pull-out before the files are read.
void Scan::LookAtThemAgain() {
    if (!m_hasPassedOver || !m_differs || m_readPassedOver || m_activity.again) return;
    m_tools.store.Write().SetToBeReadAgain(m_storage, true);
    m_activity.again = true;
}

void Scan::NotePassedOver() {
    m_hasPassedOver = true;
    m_activity.mount->hasPassedOver = true;
    LookAtThemAgain();
}

void Scan::NoteDifference() {
    m_differs = true;
    LookAtThemAgain();
}

void Scan::NewFile(Change change) {
    NoteDifference();
    KnownPlace from;
    if (!m_heldItems || !FindMoved(change, from)) return ReadNew(std::move(change));
    m_claimed.insert(from.number);
    change.number = from.number;
    change.pinned = from.pinned;
    if (from.type != change.type) return ReadLater(std::move(change));
    change.kind = Change::MOVE;
    m_changes.push_back(std::move(change));
}

// Finds an item with the same inode and content that is no longer at its old place.
bool Scan::FindMoved(const Change& change, KnownPlace& from) {
    for (KnownPlace& place : m_reader.KnownPlaces(m_storage, change.facts.inode)) {
        if (!SameContent(place.facts, change.facts) || m_claimed.count(place.number)) continue;
        struct stat facts {};
        if (StatBelow(m_root.Get(), place.folder, place.name, facts) &&
            static_cast<int64_t>(facts.st_ino) == place.facts.inode)
            continue;  // a hard link: two names of one file
        from = std::move(place);
        return true;
    }
    return false;
}

// ---- reading and writing ----------------------------------------------------------------------

void Scan::ReadNew(Change change) {
    change.isNew = true;
    if (m_space == SpaceLeft::Some) return ReadLater(std::move(change));
    ++m_leftOut;
}

// One storage must not use up the space of all; its known items are kept up to date all the same.
void Scan::LookForSpace() {
    if (m_space != SpaceLeft::Some) return;
    m_space = m_tools.store.Write().FindSpace(m_storage);
    if (m_space == SpaceLeft::Some) return;
    PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "scan of %s: %s: no more new files are listed",
                 m_mount.path.c_str(),
                 m_space == SpaceLeft::None ? "the media database's disk is full"
                                            : "it has its share of the media database");
}

void Scan::LeaveOutNew(std::vector<Change>& batch) {
    if (m_space == SpaceLeft::Some) return;
    const auto begin = std::remove_if(batch.begin(), batch.end(),
                                      [](const Change& change) { return change.isNew; });
    m_leftOut += static_cast<uint64_t>(batch.end() - begin);
    batch.erase(begin, batch.end());
}

void Scan::ReadLater(Change change) {
    ++m_activity.filesRead;
    m_reading.Add(m_root.Get(), std::move(change));
}

void Scan::Write(bool all) {
    const int64_t now = NowMs();
    const bool due = m_changes.size() >= kBatch || now - m_lastWrite >= kWriteEveryMs;
    if (m_changes.empty() || (!all && !due)) return;
    m_lastWrite = now;
    for (size_t begin = 0; begin < m_changes.size() && !m_activity.cancel; begin += kBatch)
        WriteBatch(begin, std::min(begin + kBatch, m_changes.size()));
    m_changes.clear();
    if (m_written < kCheckpointEvery) return;
    Checkpoint();
    m_written = 0;
}

void Scan::WriteBatch(size_t begin, size_t end) {
    std::vector<Change> batch(
        std::make_move_iterator(m_changes.begin() + static_cast<ptrdiff_t>(begin)),
        std::make_move_iterator(m_changes.begin() + static_cast<ptrdiff_t>(end)));
    LookForSpace();
    LeaveOutNew(batch);
    for (const Done& done : m_tools.store.Write().Apply(m_storage, batch, time(nullptr)))
        m_tools.updates.Report(UpdateOf(done, m_tools.store.ItemId(done.number), m_mount.path));
    m_written += batch.size();
}

// Nothing waits for this: readers find everything in the log as well.
void Scan::Checkpoint() {
    m_tools.workers.Submit(nullptr, [&store = m_tools.store] { store.Write().Checkpoint(); });
}

// ---- what is gone -----------------------------------------------------------------------------

void Scan::Keep(const std::string& path, int error) {
    if (error != 0) Skip(path, strerror(error));
    m_kept.push_back(path);
}

bool Scan::IsKept(const std::string& path) const {
    return std::any_of(m_kept.begin(), m_kept.end(), [&](const std::string& kept) {
        std::string below;
        return IsInside(path, kept, below);
    });
}

// Folders that had items and were not visited.
void Scan::FindGoneFolders() {
    for (const std::string& path : m_knownFolders) {
        if (IsKept(path)) continue;
        const UniqueFd opened = OpenBelow(m_root.Get(), path, O_PATH | O_DIRECTORY);
        const bool gone = !opened && MeansGone(errno);
        if (!gone && !IsExcluded(m_root.Get(), path)) continue;
        for (const auto& [name, item] : m_reader.KnownItems(m_storage, path))
            m_gone.push_back({item.number, path, name, item.pinned});
    }
}

void Scan::RemoveGone() {
    for (const Gone& gone : m_gone) {
        if (m_claimed.count(gone.number) || (gone.pinned && StillThere(gone))) continue;
        NoteDifference();
        Change change;
        change.kind = Change::REMOVE;
        change.number = gone.number;
        change.folder = gone.folder;
        change.name = gone.name;
        m_changes.push_back(std::move(change));
    }
    m_gone.clear();
}

bool Scan::StillThere(const Gone& gone) const {
    struct stat facts {};
    if (!StatBelow(m_root.Get(), gone.folder, gone.name, facts)) return !MeansGone(errno);
    return S_ISREG(facts.st_mode);
}

// False when the storage was pulled out or its root folder replaced during the scan: the walk has
// then seen less than there is.
bool Scan::RootIsTheSame() const {
    struct stat now {};
    return stat(m_mount.path.c_str(), &now) == 0 && now.st_dev == m_rootFacts.st_dev &&
           now.st_ino == m_rootFacts.st_ino;
}

void Scan::Skip(const std::string& path, const char* reason) {
    if (m_skipLines++ < kMaxSkipLines)
        PLATFORM_LOG("MEDIA_CONTENT", LOG_WARNING, "scan of %s: skipped, %s: %s",
                     m_mount.path.c_str(), reason, path.c_str());
}

}  // namespace platform
