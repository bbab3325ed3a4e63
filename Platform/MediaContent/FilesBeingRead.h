// Files whose metadata is on its way: from a scan, through the workers and their helpers, and back.
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

// Opens the changes' files below `root`, reads their metadata and completes the changes; a file
// that cannot be opened or read costs its metadata only. False when it was cancelled: the changes
// are then worth nothing. `lost`, which may be null, is what ExtractorPool says of it.
bool ReadMetadataInto(ExtractorPool& extractor, int root, std::vector<Change>& changes,
                      const std::atomic<bool>& cancel, LostTime* lost = nullptr);

// Used by one thread, except that the workers bring back what they have read. The activity and the
// pools outlive it. Files that are passed over because those before them took too much time come
// back as such, with one log line, and the mount is told.
class FilesBeingRead {
public:
    FilesBeingRead(ExtractorPool& extractor, WorkerPool& workers, Activity& activity);
    // Waits until no worker has a file any more.
    ~FilesBeingRead();
    FilesBeingRead(const FilesBeingRead&) = delete;
    FilesBeingRead& operator=(const FilesBeingRead&) = delete;

    // One more file to be read, below the folder that stays open at `root`, always the same one.
    // Waits while too many are under way.
    void Add(int root, Change change);
    // Moves to the end of `changes` what has been read by now. What has vanished, was to be tried
    // again in vain or was cancelled does not come back.
    void Take(std::vector<Change>& changes);
    // The same when everything has been read.
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
    std::vector<Change> m_group;  // not yet with the workers

    std::mutex m_mutex;
    std::condition_variable m_resultCame;
    std::vector<Change> m_results;          // guarded by m_mutex: completed by the workers
    size_t m_reading = 0;                   // guarded by m_mutex: still with the workers
    std::atomic<bool> m_hasResults{false};  // a look at it costs no lock
};

}  // namespace platform

#endif
