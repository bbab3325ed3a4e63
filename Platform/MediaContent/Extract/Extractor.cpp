#include "MediaContent/Extract/Extractor.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <mutex>
#include <utility>
#include <vector>

#include "Log/Log.h"
#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/HelperProcess.h"
#include "MediaContent/Extract/Protocol.h"
#include "MediaContent/Extract/SpawnThread.h"

#define EXTRACT_LOG(priority, ...) PLATFORM_LOG("MEDIA_EXTRACT", priority, __VA_ARGS__)

namespace platform {
namespace {

using std::chrono::milliseconds;
using Helper = std::unique_ptr<HelperProcess>;

constexpr int kProgress = 16;
constexpr milliseconds kLookAgain(20);

enum class Answer { Good, Gone, Late, Nonsense, Cancelled, NotSent };

const char* Describe(Answer answer) {
    switch (answer) {
        case Answer::Gone:
            return "ended while it read";
        case Answer::Late:
            return "took too long for";
        default:
            return "gave a wrong answer for";
    }
}

// For log lines only.
std::string NameOf(int fd) {
    std::array<char, 4096> target;
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    return length > 0 ? CleanText({target.data(), static_cast<size_t>(length)}) : "a file";
}

bool RegularFileSize(int fd, uint64_t& size) {
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    size = static_cast<uint64_t>(status.st_size);
    return true;
}

// On whose behalf files are read: when to stop, and the time lost so far (may be null).
struct Account {
    const std::atomic<bool>& cancel;
    LostTime* lost;
};

// Waits for one decoded answer message.
Answer Await(HelperProcess& helper, uint32_t number, Clock::time_point deadline,
             const Account& account, ExtractAnswer& answer) {
    std::string bytes;
    for (;;) {
        switch (helper.Receive(bytes, std::min(deadline, Clock::now() + kLookAgain))) {
            case HelperProcess::Wait::Message:
                return DecodeAnswer(bytes, answer) && answer.number == number ? Answer::Good
                                                                              : Answer::Nonsense;
            case HelperProcess::Wait::Gone:
                return Answer::Gone;
            case HelperProcess::Wait::Nothing:
                if (account.cancel) return Answer::Cancelled;
                if (Clock::now() >= deadline) return Answer::Late;
                if (helper.GiveWayIfBusy() && account.lost) account.lost->IsSlow();
        }
    }
}

// Waits for the answers to a whole request, in any number of messages; each restarts the deadline.
// `since` is when the last one arrived.
Answer AwaitAll(HelperProcess& helper, const ExtractRequest& request, const Account& account,
                ExtractAnswer& all, Clock::time_point& since) {
    while (all.files.size() < request.files.size()) {
        ExtractAnswer part;
        since = Clock::now();
        const Clock::time_point deadline = since + milliseconds(request.deadlineMs);
        const Answer outcome = Await(helper, request.number, deadline, account, part);
        if (outcome != Answer::Good) return outcome;
        if (part.files.empty() || part.files.size() > request.files.size() - all.files.size())
            return Answer::Nonsense;
        std::move(part.files.begin(), part.files.end(), std::back_inserter(all.files));
        all.retiring = part.retiring;
    }
    return Answer::Good;
}

// Files given to one helper at once: their indices in the request, and their descriptors.
struct Batch {
    ExtractRequest request;
    std::vector<int> fds;
    std::vector<size_t> places;

    void Add(const ExtractFile& file, uint64_t size, size_t place) {
        request.files.push_back({size, file.kind, file.mime});
        fds.push_back(file.fd);
        places.push_back(place);
    }
    Batch One(size_t i) const {
        Batch one;
        one.request.deadlineMs = request.deadlineMs;
        one.request.files = {request.files[i]};
        one.fds = {fds[i]};
        one.places = {places[i]};
        return one;
    }
};
using Results = std::vector<ExtractResult>;

void SetAll(const Batch& batch, ExtractStatus status, Results& results) {
    for (const size_t place : batch.places) results[place].status = status;
}

void TakeAnswers(const Batch& batch, ExtractAnswer& answer, Results& results) {
    for (size_t i = 0; i < batch.places.size(); ++i) {
        ExtractAnswer::File& file = answer.files[i];
        results[batch.places[i]] = {file.read ? ExtractStatus::Ok : ExtractStatus::Failed,
                                    std::move(file.metadata)};
    }
}

}  // namespace

void LostTime::Lose(int64_t milliseconds) {
    m_lostMs += milliseconds;
    m_isSlow();
}

void LostTime::MakeUp(size_t filesRead) {
    const auto made = static_cast<int64_t>(filesRead);
    int64_t lost = m_lostMs;
    while (lost > 0 && !m_lostMs.compare_exchange_weak(lost, std::max<int64_t>(0, lost - made)))
        continue;
}

struct ExtractorPool::Impl {
    explicit Impl(ExtractorOptions given) : options(std::move(given)) {}

    Helper TakeIdle();
    Helper StartNew(const std::atomic<bool>& cancel);
    void NoteFailedStart(const char* why);
    void GiveBack(Helper helper, bool retiring);
    Answer Ask(HelperProcess& helper, Batch& batch, const Account& account, ExtractAnswer& answer);
    Answer Read(Batch& batch, const Account& account, Results& results);
    void ReadAll(Batch batch, const Account& account, Results& results);
    bool IsSpent(const LostTime* lost) const {
        return lost && lost->Milliseconds() >= options.lostDeadlines * options.deadlineMs;
    }

    ExtractorOptions options;
    SpawnThread spawner;
    std::atomic<uint32_t> lastNumber{0};
    std::mutex mutex;  // guards what follows
    std::vector<Helper> idle;
    Clock::time_point noStartBefore = Clock::time_point::min();
    bool failureLogged = false;
};

Helper ExtractorPool::Impl::TakeIdle() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (idle.empty()) return nullptr;
    Helper helper = std::move(idle.back());
    idle.pop_back();
    return helper;
}

// Null when the program cannot be started, or could not a short while ago.
Helper ExtractorPool::Impl::StartNew(const std::atomic<bool>& cancel) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (Clock::now() < noStartBefore) return nullptr;
    }
    int error = 0;
    Helper helper = spawner.Run<Helper>(
        [this, &error] { return HelperProcess::Start(options.helperPath, error); });
    if (!helper) {
        NoteFailedStart(std::strerror(error));
        return nullptr;
    }
    // A helper's first message says that it is ready.
    ExtractAnswer ready;
    const Clock::time_point deadline = Clock::now() + milliseconds(options.startDeadlineMs);
    const Answer answer = Await(*helper, 0, deadline, {cancel, nullptr}, ready);
    if (answer == Answer::Good) {
        const std::lock_guard<std::mutex> lock(mutex);
        failureLogged = false;
        return helper;
    }
    if (answer != Answer::Cancelled) NoteFailedStart("it ended, or did not get ready");
    return nullptr;
}

void ExtractorPool::Impl::NoteFailedStart(const char* why) {
    const std::lock_guard<std::mutex> lock(mutex);
    noStartBefore = Clock::now() + milliseconds(options.restartPauseMs);
    if (std::exchange(failureLogged, true)) return;
    EXTRACT_LOG(LOG_ERROR,
                "cannot start the metadata helper %s: %s; files are listed without "
                "metadata until it can be",
                options.helperPath.c_str(), why);
}

void ExtractorPool::Impl::GiveBack(Helper helper, bool retiring) {
    if (retiring || helper->HasGivenWay() || helper->FilesRead() >= options.filesPerHelper) return;
    const std::lock_guard<std::mutex> lock(mutex);
    if (idle.size() < static_cast<size_t>(std::max(1, options.idleHelpers)))
        idle.push_back(std::move(helper));
}

Answer ExtractorPool::Impl::Ask(HelperProcess& helper, Batch& batch, const Account& account,
                                ExtractAnswer& answer) {
    do {
        batch.request.number = ++lastNumber;
    } while (batch.request.number == 0);
    if (!helper.Send(EncodeRequest(batch.request), batch.fds)) return Answer::NotSent;
    helper.CountFiles(batch.fds.size());
    Clock::time_point since;
    const Answer outcome = AwaitAll(helper, batch.request, account, answer, since);
    if (!account.lost) return outcome;
    if (outcome == Answer::Good)
        account.lost->MakeUp(batch.fds.size());
    else if (outcome != Answer::Cancelled)
        account.lost->Lose(std::chrono::ceil<milliseconds>(Clock::now() - since).count());
    return outcome;
}

// One attempt with one helper. NOT_SENT: none can be started.
Answer ExtractorPool::Impl::Read(Batch& batch, const Account& account, Results& results) {
    if (account.cancel) return Answer::Cancelled;
    // A helper that exited while idle is not the fault of these files: try the next one.
    for (;;) {
        Helper helper = TakeIdle();
        const bool isNew = !helper;
        if (isNew) helper = StartNew(account.cancel);
        if (!helper) return account.cancel ? Answer::Cancelled : Answer::NotSent;
        ExtractAnswer answer;
        const Answer outcome = Ask(*helper, batch, account, answer);
        if (outcome == Answer::NotSent && !isNew) continue;
        if (outcome != Answer::Good) return outcome == Answer::NotSent ? Answer::Gone : outcome;
        TakeAnswers(batch, answer, results);
        GiveBack(std::move(helper), answer.retiring);
        return Answer::Good;
    }
}

void ExtractorPool::Impl::ReadAll(Batch batch, const Account& account, Results& results) {
    if (IsSpent(account.lost)) return SetAll(batch, ExtractStatus::PassedOver, results);
    const Answer outcome = Read(batch, account, results);
    if (outcome == Answer::Good) return;
    if (outcome == Answer::Cancelled) return SetAll(batch, ExtractStatus::Cancelled, results);
    if (outcome == Answer::NotSent) return SetAll(batch, ExtractStatus::Unavailable, results);
    if (batch.fds.size() == 1) {
        EXTRACT_LOG(kProgress, "the metadata helper %s %s", Describe(outcome),
                    NameOf(batch.fds[0]).c_str());
        return SetAll(batch, ExtractStatus::Failed, results);
    }
    for (size_t i = 0; i < batch.fds.size(); ++i) ReadAll(batch.One(i), account, results);
}

ExtractorPool::ExtractorPool(ExtractorOptions options)
    : m_impl(std::make_unique<Impl>(std::move(options))) {}

ExtractorPool::~ExtractorPool() = default;

ExtractResult ExtractorPool::Extract(int fd, media_content_type_e kind, const char* mime,
                                     const std::atomic<bool>& cancel) {
    return std::move(Extract({{fd, kind, mime}}, cancel)[0]);
}

Results ExtractorPool::Extract(const std::vector<ExtractFile>& files,
                               const std::atomic<bool>& cancel, LostTime* lost) {
    const Account account{cancel, lost};
    Results results(files.size());
    Batch empty;
    empty.request.deadlineMs = static_cast<uint32_t>(std::max(0, m_impl->options.deadlineMs));
    Batch batch = empty;
    for (size_t place = 0; place < files.size(); ++place) {
        uint64_t size = 0;
        if (RegularFileSize(files[place].fd, size)) batch.Add(files[place], size, place);
        if (batch.fds.size() == kMaxBatch)
            m_impl->ReadAll(std::exchange(batch, empty), account, results);
    }
    if (!batch.fds.empty()) m_impl->ReadAll(std::move(batch), account, results);
    return results;
}

void ExtractorPool::EndIdleHelpers() {
    std::vector<Helper> ending;
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    ending.swap(m_impl->idle);
}

}  // namespace platform
