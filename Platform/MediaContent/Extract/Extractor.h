// Reads the metadata of media files in helper processes, so that a broken or hostile file costs
// its own metadata and nothing else.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_EXTRACTOR_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_EXTRACTOR_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MediaContent.h"
#include "MediaContent/Extract/Metadata.h"

namespace platform {

enum class ExtractStatus {
    Ok,           // `metadata` is what the file says of itself (it may be little)
    Failed,       // the file is no media file, broken, or cost its helper; `metadata` is empty
    Cancelled,    // `cancel` became true before there was an answer; `metadata` is empty
    PassedOver,   // too much time was lost before; nothing was learnt about the file
    Unavailable,  // the helper program cannot be started; nothing was learnt about the file
};

struct ExtractResult {
    ExtractStatus status = ExtractStatus::Failed;
    Metadata metadata;
};

struct ExtractorOptions {
    std::string helperPath;       // the contents-mgr-extract program, absolute
    int idleHelpers = 1;          // so many wait for the next request; the others end after theirs
    int deadlineMs = 5000;        // for one file; a helper that takes longer is killed
    int lostDeadlines = 3;        // so much time may be lost for one LostTime
    int startDeadlineMs = 15000;  // for a helper to get ready: it loads many libraries
    int filesPerHelper = 20000;   // a helper is replaced after so many files, or when it has grown
    int restartPauseMs = 5000;    // after the program could not be started: no new try for so long
};

struct ExtractFile {
    // Open for reading, of a regular file (O_NONBLOCK does no harm); stays the caller's, and its
    // file offset is not touched.
    int fd = -1;
    // What LookUpMediaType said of the file's name.
    media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
    const char* mime = "";
};

// What the files of one storage have cost in vain: deadlines, and helpers that died. Well-read ones
// make up for it, a millisecond each: a few bad files among many good ones do not matter. Outlives
// the calls that it is given to. Any thread.
class LostTime {
public:
    // `isSlow` is called, at least once and perhaps by several threads, when a helper works on a
    // request for long or in vain.
    explicit LostTime(std::function<void()> isSlow) : m_isSlow(std::move(isSlow)) {}
    void Lose(int64_t milliseconds);
    void MakeUp(size_t filesRead);
    int64_t Milliseconds() const { return m_lostMs; }
    void IsSlow() const { m_isSlow(); }

private:
    const std::function<void()> m_isSlow;
    std::atomic<int64_t> m_lostMs{0};
};

// Helper processes, one a caller, so that nobody waits for the files of others; how many callers
// there are at a time is theirs to bound. A helper that dies, hangs or answers nonsense is killed,
// waited for and replaced at the next request. One that has computed for a fifth of a second over
// one request gets the lowest priority and ends after it.
class ExtractorPool {
public:
    explicit ExtractorPool(ExtractorOptions options);
    // Ends and waits for every helper. No Extract call may be running.
    ~ExtractorPool();
    ExtractorPool(const ExtractorPool&) = delete;
    ExtractorPool& operator=(const ExtractorPool&) = delete;

    // Reads one file. The helper holds a copy of the descriptor only until the call returns.
    // Blocks until there is an answer, the deadline is over, or `cancel` is true (seen within
    // about 20 ms; the helper is then killed). Any thread, several at a time. Never throws for
    // what a file holds.
    ExtractResult Extract(int fd, media_content_type_e kind, const char* mime,
                          const std::atomic<bool>& cancel);

    // The same for several files, in much less time: a helper gets up to 32 of them at once, and
    // the two processes need not wait for each other after each. Results are in the order of
    // `files`. When a helper does not answer for all of its files within the deadline, each is
    // asked for again alone, so that a bad file costs itself only (and two deadlines of time).
    // With `lost`, which may be null, what that costs is added up there, over as many calls as it
    // is given to; once it is more than a few deadlines the files that are left are PASSED_OVER.
    std::vector<ExtractResult> Extract(const std::vector<ExtractFile>& files,
                                       const std::atomic<bool>& cancel, LostTime* lost = nullptr);

    // Ends helpers that have nothing to do, to give back their memory after a scan. Any thread.
    void EndIdleHelpers();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace platform

#endif
