// The real service as a process of its own, in a folder of its own.
#ifndef TESTS_SERVICE_SERVICE_PROCESS_H
#define TESTS_SERVICE_SERVICE_PROCESS_H

#include <filesystem>
#include <memory>
#include <string>

#include "Service/DBusClient.h"
#include "Service/Program.h"

namespace test {

struct ServiceOptions {
    std::filesystem::path folder;    // holds the log, and run/socket, which the service makes
    std::filesystem::path usbRoot;   // must exist
    std::filesystem::path database;  // default: media.db in its folder
    std::string logLevel = "progress";
    Variables environment;          // on top of our own
    std::function<void()> inChild;  // as in Program
};

// One thread at a time.
class ServiceProcess {
public:
    explicit ServiceProcess(const ServiceOptions& options);

    // Waits until it serves; false when it ended or did not serve within the deadline.
    bool WaitUntilServing();
    std::unique_ptr<DBusClient> NewClient() const;

    // Asks it to end. Its status, as in Outcome; -1, and it is killed, when it does not end within
    // the deadline.
    int Stop();
    void Kill();
    bool IsRunning() { return m_program.IsRunning(); }

    pid_t Pid() const { return m_program.Pid(); }
    const std::string& Socket() const { return m_socket; }
    std::string Log() const { return ReadFile(m_log); }
    // The log holds `text`, now or before the deadline.
    bool WaitForLog(const std::string& text) const { return WaitForText(m_log, text); }

private:
    const std::string m_socket;
    const std::string m_log;
    Program m_program;
};

}  // namespace test

#endif
