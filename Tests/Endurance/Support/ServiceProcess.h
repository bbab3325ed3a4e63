// The real service as a process of its own, in a folder of its own.
#ifndef TESTS_ENDURANCE_SUPPORT_SERVICE_PROCESS_H
#define TESTS_ENDURANCE_SUPPORT_SERVICE_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EndToEnd/Support/DBusClient.h"

namespace endurance {

// A folder below the system's temporary one, removed with the object.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

struct ServiceOptions {
    std::filesystem::path folder;    // holds the socket and the log
    std::filesystem::path usbRoot;   // must exist
    std::filesystem::path database;  // default: media.db in its folder
    std::string extractor = ENDURANCE_EXTRACTOR;
    std::string logLevel = "progress";
    std::vector<std::string> environment;  // NAME=VALUE, on top of our own
    std::function<void()> inChild;         // after fork; async-signal-safe calls only
};

// One thread at a time.
class ServiceProcess {
public:
    explicit ServiceProcess(ServiceOptions options);
    ~ServiceProcess();  // kills it when it still runs
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    // Waits until it serves; false when it ended or did not serve within the deadline.
    bool WaitUntilServing(std::chrono::seconds deadline = test::kDeadline);
    std::unique_ptr<test::DBusClient> NewClient() const;

    // Asks it to end. Its exit status, -N when signal N ended it; nothing, and it is killed, when
    // it does not end within the deadline.
    std::optional<int> Stop(std::chrono::seconds deadline = test::kDeadline);
    void Kill();
    bool IsRunning();

    pid_t Pid() const { return m_pid; }
    const std::string& Socket() const { return m_socket; }
    std::string Log() const;
    // The log holds `text`, now or before the deadline.
    bool WaitForLog(const std::string& text, std::chrono::seconds deadline = test::kDeadline);

private:
    bool WaitForEnd(std::chrono::seconds deadline);

    const ServiceOptions m_options;
    const std::string m_socket;
    const std::string m_log;
    pid_t m_pid = -1;
    std::optional<int> m_status;  // once it has ended
};

// Calls `done` until it is true or the deadline is over; its last answer.
bool WaitUntil(const std::function<bool()>& done,
               std::chrono::milliseconds deadline = test::kDeadline);

}  // namespace endurance

#endif
