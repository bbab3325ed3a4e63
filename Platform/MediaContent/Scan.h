// One scan: brings the database up to date with a storage, or with some of its folders.
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
    std::string path;  // relative to the storage's root, "" for the root; may be gone
    bool recursive = true;
};

// What scans work with. Owned by the service; outlives every scan.
struct ScanTools {
    Store& store;
    ExtractorPool& extractor;
    WorkerPool& workers;
    Updates& updates;
};

// The scan's own thread walks the folders and is the only one that writes; the workers only read
// files. Used once, by one thread.
class Scan {
public:
    Scan(const ScanTools& tools, Activity& activity, std::vector<ScanTarget> targets);
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    // Returns NONE, CANCELLED, NOT_FOUND or PERMISSION_DENIED (the root cannot be read), or
    // DB_FAILED. What was written before an error stays, and nothing is removed. DB_FAILED is also
    // returned when everything was done except for new files for which there was no space.
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
    bool m_heldItems = false;       // the database had items of this storage before
    bool m_stableInodes = true;     // the file system keeps inode numbers across mounts
    bool m_readPassedOver = false;  // passed-over files are to be read now
    bool m_hasPassedOver = false;   // the storage has passed-over files
    bool m_differs = false;         // the storage differs from the database
    std::vector<ScanTarget> m_stack;
    std::unordered_set<std::string>
        m_knownFolders;               // had items before this scan; visited ones are removed
    std::vector<std::string> m_kept;  // unreadable: items below them are kept
    std::vector<Gone> m_gone;
    std::unordered_set<int64_t> m_claimed;  // items that moved, or whose content changed in place
    std::vector<Change> m_changes;          // to be written
    int64_t m_lastWrite = 0;                // milliseconds
    uint64_t m_written = 0;                 // changes since the last checkpoint
    SpaceLeft m_space = SpaceLeft::Some;
    uint64_t m_leftOut = 0;  // new files for which there was no space
    int m_skipLines = 0;

    FilesBeingRead m_reading;  // destroyed first: until then workers read below m_root
};

}  // namespace platform

#endif
