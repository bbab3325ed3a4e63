#include "MediaContent/Extract/HelperProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include "MediaContent/Extract/Protocol.h"

namespace platform {
namespace {

constexpr int kKillWaitMs = 1000;
constexpr std::chrono::milliseconds kBusy(200);  // of processor time without an answer
constexpr int kLowestPriority = 19;

// Children that were killed and have not exited yet.
class Lingering {
public:
    void Add(pid_t pid) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_pids.push_back(pid);
    }
    void Reap() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto ended = [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; };
        m_pids.erase(std::remove_if(m_pids.begin(), m_pids.end(), ended), m_pids.end());
    }
    static Lingering& Instance() {
        static Lingering instance;
        return instance;
    }

private:
    std::mutex m_mutex;
    std::vector<pid_t> m_pids;
};

class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&m_actions); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&m_actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    int Fill(int socket) {
        int error = posix_spawn_file_actions_adddup2(&m_actions, socket, kHelperSocketFd);
        const auto step = [&error](int result) { error = error ? error : result; };
        step(posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        step(posix_spawn_file_actions_addopen(&m_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0));
        step(posix_spawn_file_actions_addclosefrom_np(&m_actions, kHelperSocketFd + 1));
        // A helper must not keep a storage busy through its working directory.
        step(posix_spawn_file_actions_addchdir_np(&m_actions, "/"));
        return error;
    }
    const posix_spawn_file_actions_t* Get() const { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions;
};

class SpawnAttributes {
public:
    SpawnAttributes() { posix_spawnattr_init(&m_attributes); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    int Fill() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        int error = posix_spawnattr_setsigmask(&m_attributes, &none);
        if (!error) error = posix_spawnattr_setsigdefault(&m_attributes, &all);
        // Its own process group, so that a terminal's Ctrl-C reaches only the service.
        if (!error) error = posix_spawnattr_setpgroup(&m_attributes, 0);
        if (error) return error;
        return posix_spawnattr_setflags(
            &m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    const posix_spawnattr_t* Get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes;
};

int Spawn(const std::string& program, int socket, pid_t& pid) {
    SpawnActions actions;
    SpawnAttributes attributes;
    int error = actions.Fill(socket);
    if (!error) error = attributes.Fill();
    if (error) return error;
    std::string name = program;
    std::array<char*, 2> arguments = {name.data(), nullptr};
    // The parsers allocate and free thousands of small blocks per file; caching more of them than
    // the C library's seven per size pays off.
    std::string heap = "GLIBC_TUNABLES=glibc.malloc.tcache_count=1000";
    std::array<char*, 2> environment = {heap.data(), nullptr};
    return posix_spawn(&pid, program.c_str(), actions.Get(), attributes.Get(), arguments.data(),
                       environment.data());
}

int MillisecondsUntil(Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

}  // namespace

std::unique_ptr<HelperProcess> HelperProcess::Start(const std::string& program, int& error) {
    Lingering::Instance().Reap();
    std::array<int, 2> ends;
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        error = errno;
        return nullptr;
    }
    UniqueFd ours(ends[0]);
    const UniqueFd theirs(ends[1]);
    pid_t pid = -1;
    error = Spawn(program, theirs.Get(), pid);
    if (error) return nullptr;
    return std::unique_ptr<HelperProcess>(new HelperProcess(pid, std::move(ours)));
}

HelperProcess::HelperProcess(pid_t pid, UniqueFd socket)
    : m_pid(pid),
      m_pidFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))),
      m_socket(std::move(socket)) {}

HelperProcess::~HelperProcess() {
    kill(m_pid, SIGKILL);
    pollfd end = {m_pidFd.Get(), POLLIN, 0};
    if (m_pidFd) poll(&end, 1, kKillWaitMs);
    if (waitpid(m_pid, nullptr, m_pidFd ? WNOHANG : 0) == 0) Lingering::Instance().Add(m_pid);
    Lingering::Instance().Reap();
}

std::chrono::nanoseconds HelperProcess::ProcessorTime() const {
    clockid_t clock = 0;
    timespec time = {};
    if (clock_getcpuclockid(m_pid, &clock) != 0 || clock_gettime(clock, &time) != 0) return {};
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

bool HelperProcess::GiveWayIfBusy() {
    if (!m_hasGivenWay && ProcessorTime() - m_timeAtMessage > kBusy)
        m_hasGivenWay = setpriority(PRIO_PROCESS, static_cast<id_t>(m_pid), kLowestPriority) == 0;
    return m_hasGivenWay;
}

bool HelperProcess::Send(const std::string& bytes, const std::vector<int>& fds) {
    if (fds.size() > kMaxBatch) return false;
    const size_t length = fds.size() * sizeof(int);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMaxBatch * sizeof(int))> control = {};
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(length);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(length);
    std::memcpy(CMSG_DATA(header), fds.data(), length);
    ssize_t sent = 0;
    m_timeAtMessage = ProcessorTime();
    // Only one request is in progress at a time, so the socket has room for it.
    do {
        sent = sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(bytes.size());
}

HelperProcess::Wait HelperProcess::Receive(std::string& bytes, Clock::time_point until) {
    pollfd socket = {m_socket.Get(), POLLIN, 0};
    const int ready = poll(&socket, 1, MillisecondsUntil(until));
    if (ready == 0 || (ready < 0 && errno == EINTR)) return Wait::Nothing;
    // No room for descriptors: the kernel closes any that a helper sends.
    bytes.resize(kMaxAnswer + 1);
    const ssize_t got = recv(m_socket.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return Wait::Nothing;
    if (got <= 0 || static_cast<size_t>(got) > kMaxAnswer) return Wait::Gone;
    bytes.resize(static_cast<size_t>(got));
    m_timeAtMessage = ProcessorTime();
    return Wait::Message;
}

}  // namespace platform
