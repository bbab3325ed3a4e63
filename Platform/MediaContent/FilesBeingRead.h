// Files whose metadata is being read: from a scan, through the workers and their helpers, and back.
#ifndef PLATFORM_MEDIA_CONTENT_FILES_BEING_READ_H
#define PLATFORM_MEDIA_CONTENT_FILES_BEING_READ_H

#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "MediaContent/Activity.h"
#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/WorkerPool.h"
#include "MediaContent/Writer.h"

namespace platform {

FileFacts FactsOf(const struct stat& facts);

// Opens the changes' files below `root`, reads their metadata and fills in the changes; a file that
// cannot be opened or read only lacks its metadata. False when cancelled: the changes are then
// unusable. `lost`, which may be null, is ExtractorPool's output of the same name.
bool ReadMetadataInto(ExtractorPool& extractor, int root, std::vector<Change>& changes,
                      const std::atomic<bool>& cancel, LostTime* lost = nullptr);

// Used by one thread, except that the workers deliver their results. The activity and the pools
// outlive it. Files that are passed over because earlier ones took too long come back in that
// state, with one log line, and the mount is told.
class FilesBeingRead {
public:
    FilesBeingRead(ExtractorPool& extractor, WorkerPool& workers, Activity& activity);
    // Waits until no worker holds a file.
    ~FilesBeingRead();
    FilesBeingRead(const FilesBeingRead&) = delete;
    FilesBeingRead& operator=(const FilesBeingRead&) = delete;

    // Adds one file to be read, below the folder that stays open at `root`, which is the same in
    // every call. Waits while too many files are in progress.
    void Add(int root, Change change);
    // Moves what has been read so far to the end of `changes`. Files that have vanished,
    // were retried without a result, or were cancelled are left out.
    void Take(std::vector<Change>& changes);
    // The same, after waiting until everything has been read.
    void TakeAll(std::vector<Change>& changes);

private:
    void HandOut();
    void ReadGroup(int root, std::vector<Change> group);
    void MoveResults(std::vector<Change>& changes);
    void NotePassedOver(const std::vector<Change>& group);

    ExtractorPool& m_extractor;
    WorkerPool& m_workers;
    Activity& m_activity;
    LostTime m_lost;
    std::atomic<bool> m_toldOfPassedOver{false};
    int m_root = -1;
    std::vector<Change> m_group;  // not yet handed to the workers

    std::mutex m_mutex;
    std::condition_variable m_resultCame;
    std::vector<Change> m_results;          // guarded by m_mutex: completed by the workers
    size_t m_reading = 0;                   // guarded by m_mutex: still with the workers
    std::atomic<bool> m_hasResults{false};  // read without the lock
};

}  // namespace platform

#endif
