// contents-mgr-extract: reads the metadata of the files that it receives, inside the sandbox.
// Started only by the service, which holds the other end of the socket.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Protocol.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/Sandbox.h"
#include "Process/Heap.h"
#include "Process/UniqueFd.h"

namespace {

using namespace platform;

// A helper whose memory has grown to this size exits after the answer: heaps do not shrink. Under
// sanitizers the size says nothing, as it includes their own memory.
#ifdef CM_SANITIZED
constexpr long kRetireKilobytes = 4 * 1024 * 1024;
#else
constexpr long kRetireKilobytes = 160 * 1024;
#endif

constexpr std::chrono::milliseconds kSaySomething(50);

int Fail(const char* what) {
    std::fprintf(stderr, "contents-mgr-extract: %s\n", what);
    return 2;
}

// Twice the deadline plus a second after the request, nobody waits for the answer any more, even if
// the service is gone or stuck: the alarm then kills the process.
void SetAlarm(uint32_t deadlineMs) {
    const itimerval alarm = {{0, 0}, {deadlineMs == 0 ? 0 : 2 * (deadlineMs / 1000) + 1, 0}};
    setitimer(ITIMER_REAL, &alarm, nullptr);
}

bool HasGrown() {
    rusage usage = {};
    return getrusage(RUSAGE_SELF, &usage) == 0 && usage.ru_maxrss > kRetireKilobytes;
}

using Files = std::vector<UniqueFd>;

// Takes all received descriptors.
Files TakeDescriptors(msghdr& message) {
    Files files;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t bytes = header->cmsg_len - CMSG_LEN(0);
        for (size_t at = 0; at + sizeof(int) <= bytes; at += sizeof(int)) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(header) + at, sizeof fd);
            files.emplace_back(fd);
        }
    }
    return files;
}

// The next request with its files; false when the service is gone or sends an invalid message.
bool Receive(ExtractRequest& request, Files& files) {
    std::array<char, kMaxRequest> bytes;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMaxBatch * sizeof(int))> control;
    iovec part = {bytes.data(), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t got = 0;
    do {
        got = recvmsg(kHelperSocketFd, &message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got <= 0) return false;
    files = TakeDescriptors(message);
    return !(message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) &&
           DecodeRequest({bytes.data(), static_cast<size_t>(got)}, request) &&
           files.size() == request.files.size();
}

bool Send(const std::string& bytes) {
    return send(kHelperSocketFd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

void ReadInto(AnswerEncoder& answer, const ExtractRequest::File& wanted, const UniqueFd& file) {
    FileSource source(file.Get(), wanted.size);
    Metadata metadata;
    const bool read = ReadMetadata(source, wanted.kind, wanted.mime.c_str(), metadata);
    answer.Add(read, metadata);
}

// Each file is closed before its answer is sent: whoever receives the answer may unmount the
// storage. Results are sent as they become ready: on a slow machine a whole request takes long, and
// the service considers a silent helper stuck.
bool AnswerRequest(const ExtractRequest& request, Files files) {
    using Clock = std::chrono::steady_clock;
    AnswerEncoder answer(request.number);
    Clock::time_point sent = Clock::now();
    for (size_t i = 0; i < files.size(); ++i) {
        ReadInto(answer, request.files[i], files[i]);
        files[i].Close();
        if (i + 1 == files.size() || (!answer.IsFull() && Clock::now() - sent < kSaySomething))
            continue;
        if (!Send(answer.Take(false))) return false;
        SetAlarm(request.deadlineMs);
        sent = Clock::now();
    }
    const bool retiring = HasGrown();
    return Send(answer.Take(retiring)) && !retiring;
}

void Serve() {
    for (;;) {
        ExtractRequest request;
        Files files;
        if (!Receive(request, files)) return;
        SetAlarm(request.deadlineMs);
        const bool goOn = AnswerRequest(request, std::move(files));
        SetAlarm(0);
        if (!goOn) return;
    }
}

// When memory runs out, the kernel should kill this process rather than the service. Best effort.
void OfferToTheOomKiller() {
    const UniqueFd file(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
    if (file && write(file.Get(), "1000", 4) < 0) return;
}

// The libraries' messages are discarded; a sanitizer's report goes to the service's standard error.
bool QuietStandardError() {
#ifdef CM_SANITIZED
    return true;
#endif
    const UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    return null && dup2(null.Get(), STDERR_FILENO) == STDERR_FILENO;
}

bool IsSocket(int fd) {
    int type = 0;
    socklen_t length = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_SEQPACKET;
}

}  // namespace

int main() {
    if (!IsSocket(kHelperSocketFd)) return Fail("started by contents-mgr only, not by hand");
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (close_range(kHelperSocketFd + 1, ~0u, 0) != 0) return Fail("cannot close descriptors");
    clearenv();
    OfferToTheOomKiller();
    KeepHeapLarge();  // files come and go, and so do their blocks
    InitMetadataReaders();
    if (!QuietStandardError()) return Fail("cannot open /dev/null");
    if (!EnterSandbox()) return Fail("cannot put up the sandbox");
    // Signals "ready": an answer to no request.
    if (Send(AnswerEncoder(0).Take(false))) Serve();
    // The libraries' destructors do nothing that the end of the process does not.
    _exit(0);
}
