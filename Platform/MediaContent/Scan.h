// One scan: brings the database's picture of a storage, or of some folders of it, up to date.
#ifndef PLATFORM_MEDIA_CONTENT_SCAN_H
#define PLATFORM_MEDIA_CONTENT_SCAN_H

#include <sys/stat.h>

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "MediaContent/Activity.h"
#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/FilesBeingRead.h"
#include "MediaContent/Reader.h"
#include "MediaContent/Store.h"
#include "MediaContent/Updates.h"
#include "MediaContent/Walk.h"
#include "MediaContent/WorkerPool.h"

namespace platform {

struct ScanTarget {
    std::string path;  // a folder below the storage's root, "" for the root; it may be gone
    bool recursive = true;
};

// What scans work with. Owned by the service; outlives every scan.
struct ScanTools {
    Store& store;
    ExtractorPool& extractor;
    WorkerPool& workers;
    Updates& updates;
};

// The scan's own thread walks and is the only one that writes; the workers only read files.
// Used once, by one thread.
class Scan {
public:
    Scan(const ScanTools& tools, Activity& activity, std::vector<ScanTarget> targets);
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    // NONE, CANCELLED, NOT_FOUND or PERMISSION_DENIED (no reading the root), or DB_FAILED. What was
    // written before an error stays; nothing is removed then. DB_FAILED, too, when all was done but
    // for new files that there was no room for.
    media_content_error_e Run();

private:
    struct Gone {
        int64_t number;
        std::string folder;
        std::string name;
        bool pinned;
    };

    media_content_error_e OpenRoot();
    media_content_error_e WalkAll();
    media_content_error_e ScanFolder(const ScanTarget& target);
    bool LooksUnmounted(const FolderContent& content) const;
    void ScanFiles(const UniqueFd& folder, const std::string& path, const FolderContent& content,
                   std::unordered_map<std::string, KnownItem> known);
    void ScanFile(const UniqueFd& folder, const std::string& path, const std::string& name,
                  std::unordered_map<std::string, KnownItem>& known);
    void CompareFile(Change change, const KnownItem& known);
    void NotePassedOver();
    void NoteDifference();
    void LookAtThemAgain();
    void NewFile(Change change);
    bool FindMoved(const Change& change, KnownPlace& from);
    void ReadNew(Change change);
    void ReadLater(Change change);
    void LookForSpace();
    void LeaveOutNew(std::vector<Change>& batch);
    void Write(bool all);
    void WriteBatch(size_t begin, size_t end);
    void Checkpoint();
    void Keep(const std::string& path, int error);
    bool IsKept(const std::string& path) const;
    void FindGoneFolders();
    void RemoveGone();
    bool StillThere(const Gone& gone) const;
    bool RootIsTheSame() const;
    void Skip(const std::string& path, const char* reason);

    const ScanTools& m_tools;
    Activity& m_activity;
    const Mount& m_mount;
    const int64_t m_storage;
    const std::vector<ScanTarget> m_targets;
    Reader m_reader;

    UniqueFd m_root;
    struct stat m_rootFacts {};
    bool m_heldItems = false;       // the storage had items before
    bool m_stableInodes = true;     // the file system keeps inode numbers from mount to mount
    bool m_readPassedOver = false;  // what was passed over is to be read now
    bool m_hasPassedOver = false;   // there is some
    bool m_differs = false;         // from what the database knows
    std::vector<ScanTarget> m_stack;
    std::unordered_set<std::string>
        m_knownFolders;               // held items before; visited ones are taken out
    std::vector<std::string> m_kept;  // could not be read: nothing below is judged
    std::vector<Gone> m_gone;
    std::unordered_set<int64_t> m_claimed;  // items that moved, or whose content changed in place
    std::vector<Change> m_changes;          // to be written
    int64_t m_lastWrite = 0;                // milliseconds
    uint64_t m_written = 0;                 // changes since the last checkpoint
    SpaceLeft m_space = SpaceLeft::Some;
    uint64_t m_leftOut = 0;  // new files without room
    int m_skipLines = 0;

    FilesBeingRead m_reading;  // the first to go: the workers read below m_root until then
};

}  // namespace platform

#endif
