#include "Service/ServiceProcess.h"

#include <signal.h>

#include <stdexcept>

namespace test {
namespace {

std::vector<std::string> Words(const ServiceOptions& options, const std::string& socket) {
    const auto database = options.database.empty() ? options.folder / "media.db" : options.database;
    return {SERVICE_PROGRAM, "--address",   "unix:path=" + socket, "--usb",
            "directory",     "--usb-root",  options.usbRoot,       "--database",
            database,        "--log-level", options.logLevel};
}

Variables Environment(const ServiceOptions& options) {
    Variables all = options.environment;
    all.emplace_back("G_SLICE", "always-malloc");  // as the service's unit sets it
    all.emplace_back("LSAN_OPTIONS", "suppressions=" SERVICE_LEAKS);
    return all;
}

}  // namespace

ServiceProcess::ServiceProcess(const ServiceOptions& options)
    : m_socket(options.folder / "run/socket"),
      m_log(options.folder / "service.log"),
      m_program(Words(options, m_socket), m_log, Environment(options), m_log, options.inChild) {}

bool ServiceProcess::WaitUntilServing() {
    const auto serves = [this] {
        try {
            NewClient();
            return true;
        } catch (const std::runtime_error&) {
            return !IsRunning();
        }
    };
    return Until(serves) && IsRunning();
}

std::unique_ptr<DBusClient> ServiceProcess::NewClient() const {
    return std::make_unique<DBusClient>(m_socket);
}

int ServiceProcess::Stop() {
    m_program.Signal(SIGTERM);
    const int status = m_program.Wait(kDeadline);
    if (IsRunning()) Kill();
    return status;
}

void ServiceProcess::Kill() {
    m_program.Signal(SIGKILL);
    m_program.Wait();
}

}  // namespace test
