// One metadata helper process, as the service sees it.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_HELPER_PROCESS_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_HELPER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Process/UniqueFd.h"

namespace platform {

using Clock = std::chrono::steady_clock;

// Owns a child process and the socket to it. The destructor kills the child and waits up to a
// second for its end; one that is stuck in the kernel longer (a dead disk) is kept in a list of
// the process and waited for when the next helper is started or ends. One thread at a time.
class HelperProcess {
public:
    // Starts the program with an empty environment, "/" as its folder, no descriptors but the
    // socket and /dev/null (standard error is inherited), default signals and a process group of
    // its own. Null, with `error` an errno value, when it cannot be. The child is told to die with
    // the calling thread: it must be one that outlives the helper.
    static std::unique_ptr<HelperProcess> Start(const std::string& program, int& error);
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    // Sends one message with descriptors (at most kMaxBatch) beside it. False when the helper is
    // gone.
    bool Send(const std::string& bytes, const std::vector<int>& fds);

    enum class Wait { Message, Nothing, Gone };
    // Waits for one message until `until`; longer ones than kMaxAnswer count as GONE.
    Wait Receive(std::string& bytes, Clock::time_point until);

    // Looks how long the helper has computed since the last message either way; after a fifth of a
    // second it gets the lowest priority, for good. True from then on.
    bool GiveWayIfBusy();
    bool HasGivenWay() const { return m_hasGivenWay; }

    pid_t Pid() const { return m_pid; }
    int FilesRead() const { return m_filesRead; }
    void CountFiles(size_t count) { m_filesRead += static_cast<int>(count); }

private:
    HelperProcess(pid_t pid, UniqueFd socket);
    std::chrono::nanoseconds ProcessorTime() const;

    const pid_t m_pid;
    UniqueFd m_pidFd;
    UniqueFd m_socket;
    int m_filesRead = 0;
    std::chrono::nanoseconds m_timeAtMessage{0};
    bool m_hasGivenWay = false;
};

}  // namespace platform

#endif
