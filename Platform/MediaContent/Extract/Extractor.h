// Reads the metadata of media files in helper processes, so that a broken or hostile file loses its
// own metadata and nothing else.
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
    Ok,           // `metadata` is what the file contains (it may be little)
    Failed,       // not a media file, broken, or it cost its helper; `metadata` is empty
    Cancelled,    // `cancel` became true before there was a result; `metadata` is empty
    PassedOver,   // too much time had been lost before; the file was not read
    Unavailable,  // the helper program cannot be started; the file was not read
};

struct ExtractResult {
    ExtractStatus status = ExtractStatus::Failed;
    Metadata metadata;
};

struct ExtractorOptions {
    std::string helperPath;       // the contents-mgr-extract program, absolute
    int idleHelpers = 1;          // kept for the next request; further helpers exit after theirs
    int deadlineMs = 5000;        // per file; a helper that takes longer is killed
    int lostDeadlines = 3;        // the number of deadlines that one LostTime may lose
    int startDeadlineMs = 15000;  // for a helper to get ready: it loads many libraries
    int filesPerHelper = 20000;   // a helper is replaced after this many, or when it has grown
    int restartPauseMs = 5000;    // after the program could not be started, before the next try
};

struct ExtractFile {
    // A regular file, open for reading (O_NONBLOCK is harmless). The caller keeps it, and its file
    // offset is not changed.
    int fd = -1;
    // The result of LookUpMediaType for the file's name.
    media_content_type_e kind = MEDIA_CONTENT_TYPE_OTHERS;
    const char* mime = "";
};

// The time wasted on the files of one storage: deadlines, and helpers that died. Each file that was
// read successfully compensates for a millisecond, so a few bad files among many good ones do not
// matter. Must outlive the calls that use it. Thread-safe.
class LostTime {
public:
    // `isSlow` is called, at least once and possibly from several threads, when a helper takes long
    // over a request or fails it.
    explicit LostTime(std::function<void()> isSlow) : m_isSlow(std::move(isSlow)) {}
    void Lose(int64_t milliseconds);
    void MakeUp(size_t filesRead);
    int64_t Milliseconds() const { return m_lostMs; }
    void IsSlow() const { m_isSlow(); }

private:
    const std::function<void()> m_isSlow;
    std::atomic<int64_t> m_lostMs{0};
};

// Helper processes, one per caller, so that no caller waits for another's files; callers limit
// their own number. A helper that dies, hangs or sends an invalid answer is killed, waited for and
// replaced at the next request. A helper that has used a fifth of a second of processor time on one
// request gets the lowest priority and exits after it.
class ExtractorPool {
public:
    explicit ExtractorPool(ExtractorOptions options);
    // Ends and waits for every helper. No Extract call may be in progress.
    ~ExtractorPool();
    ExtractorPool(const ExtractorPool&) = delete;
    ExtractorPool& operator=(const ExtractorPool&) = delete;

    // Reads one file. The helper holds a copy of the descriptor only until the call returns. Blocks
    // until there is a result, the deadline expires, or `cancel` is true (noticed within about 20
    // ms; the helper is then killed). Thread-safe; calls run in parallel. Never throws because of a
    // file's content.
    ExtractResult Extract(int fd, media_content_type_e kind, const char* mime,
                          const std::atomic<bool>& cancel);

    // The same for several files, in much less time: a helper gets up to 32 of them at once, and
    // the two processes need not wait for each other after each file. Results are in the order of
    // `files`. When a helper does not answer for all of its files within the deadline, each is
    // requested again alone, so that a bad file affects only itself (and costs two deadlines of
    // time). `lost`, which may be null, accumulates that cost over all calls that share it; once it
    // exceeds a few deadlines the remaining files are PASSED_OVER.
    std::vector<ExtractResult> Extract(const std::vector<ExtractFile>& files,
                                       const std::atomic<bool>& cancel, LostTime* lost = nullptr);

    // Ends idle helpers, to release their memory after a scan. Thread-safe.
    void EndIdleHelpers();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace platform

#endif
