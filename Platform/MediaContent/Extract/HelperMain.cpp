// contents-mgr-extract: reads the metadata of the files it is sent, one at a time, shut in. Started
// by the service alone, which holds the other end of the socket.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "MediaContent/Extract/CleanText.h"
#include "MediaContent/Extract/Protocol.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/Sandbox.h"
#include "MediaContent/Extract/UniqueFd.h"

namespace {

using namespace platform;

// A helper whose memory has once grown so far ends after the answer: heaps do not shrink.
constexpr long RETIRE_KILOBYTES = 160 * 1024;

int Fail(const char* what) {
    std::fprintf(stderr, "contents-mgr-extract: %s\n", what);
    return 2;
}

// Past twice the deadline and a second nobody waits for the answer any more, should the service
// be gone or stuck: the alarm then ends the process.
void SetAlarm(uint32_t deadlineMs) {
    const itimerval alarm = {{0, 0}, {deadlineMs == 0 ? 0 : 2 * (deadlineMs / 1000) + 1, 0}};
    setitimer(ITIMER_REAL, &alarm, nullptr);
}

bool HasGrown() {
    rusage usage = {};
    return getrusage(RUSAGE_SELF, &usage) == 0 && usage.ru_maxrss > RETIRE_KILOBYTES;
}

UniqueFd TakeDescriptor(msghdr& message) {
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS ||
        header->cmsg_len != CMSG_LEN(sizeof(int)))
        return UniqueFd();
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return UniqueFd(fd);
}

// The next request with its file; false when the service is gone or talks nonsense.
bool Receive(ExtractRequest& request, UniqueFd& file) {
    std::array<char, MAX_REQUEST> bytes;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control;
    iovec part = {bytes.data(), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t got = 0;
    do {
        got = recvmsg(HELPER_SOCKET_FD, &message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got <= 0) return false;
    file = TakeDescriptor(message);
    if ((message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) || !file) return false;
    return DecodeRequest({bytes.data(), static_cast<size_t>(got)}, request);
}

bool Send(const ExtractAnswer& answer) {
    const std::string bytes = EncodeAnswer(answer);
    return send(HELPER_SOCKET_FD, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

ExtractAnswer Read(const ExtractRequest& request, const UniqueFd& file) {
    ExtractAnswer answer;
    answer.number = request.number;
    FileSource source(file.Get(), request.fileSize);
    answer.read = ReadMetadata(source, request.kind, request.mime.c_str(), answer.metadata);
    answer.retiring = HasGrown();
    return answer;
}

void Serve() {
    bool going = true;
    while (going) {
        ExtractRequest request;
        UniqueFd file;
        if (!Receive(request, file)) return;
        SetAlarm(request.deadlineMs);
        const ExtractAnswer answer = Read(request, file);
        // Closed before the answer: who has it may unmount the storage.
        file.Close();
        SetAlarm(0);
        going = Send(answer) && !answer.retiring;
    }
}

// When memory runs out, the kernel is to take this process and not the service. A wish only.
void OfferToTheOomKiller() {
    const UniqueFd file(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
    if (file && write(file.Get(), "1000", 4) < 0) return;
}

bool QuietStandardError() {
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
    if (!IsSocket(HELPER_SOCKET_FD)) return Fail("started by contents-mgr only, not by hand");
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (close_range(HELPER_SOCKET_FD + 1, ~0u, 0) != 0) return Fail("cannot close descriptors");
    clearenv();
    OfferToTheOomKiller();
    InitMetadataReaders();
    if (!QuietStandardError()) return Fail("cannot open /dev/null");
    if (!EnterSandbox()) return Fail("cannot put up the sandbox");
    // "Ready": an answer to no request.
    if (Send(ExtractAnswer())) Serve();
    // The libraries' destructors have nothing to do that the end of the process does not.
    _exit(0);
}
