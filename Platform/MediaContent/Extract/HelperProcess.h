// One metadata helper process, as seen by the service.
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
// second for it to exit; a child that is stuck in the kernel longer (a dead disk) is put on a
// process-wide list and waited for when the next helper starts or ends. One thread at a time.
class HelperProcess {
public:
    // Starts the program with an empty environment, "/" as its working directory, no descriptors
    // but the socket and /dev/null (standard error is inherited), default signals and its own
    // process group. On failure returns null and sets `error` to an errno value. The child dies
    // with the calling thread, so that thread must outlive the helper.
    static std::unique_ptr<HelperProcess> Start(const std::string& program, int& error);
    ~HelperProcess();
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;

    // Sends one message with its descriptors (at most kMaxBatch). False when the helper is gone.
    bool Send(const std::string& bytes, const std::vector<int>& fds);

    enum class Wait { Message, Nothing, Gone };
    // Waits for one message until `until`; a message longer than kMaxAnswer counts as GONE.
    Wait Receive(std::string& bytes, Clock::time_point until);

    // Checks how much processor time the helper has used since the last message in either
    // direction; after a fifth of a second the helper gets the lowest priority permanently. True
    // from then on.
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
