#include "Endurance/Support/ServiceProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace endurance {
namespace {

constexpr std::chrono::milliseconds kLookAgain{5};

std::filesystem::path MakeScratch() {
    std::string pattern = (std::filesystem::temp_directory_path() / "endure-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    return pattern;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> Environment(const std::vector<std::string>& extra) {
    std::vector<std::string> all = extra;
    all.push_back("G_SLICE=always-malloc");  // as the service's unit sets it
    all.push_back("LSAN_OPTIONS=suppressions=" ENDURANCE_LEAKS);
    for (char** at = environ; *at; ++at) all.push_back(*at);
    return all;
}

}  // namespace

ScratchFolder::ScratchFolder() : m_path(MakeScratch()) {}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kLookAgain);
    }
    return true;
}

ServiceProcess::ServiceProcess(ServiceOptions options)
    : m_options(std::move(options)),
      m_socket((m_options.folder / "socket").string()),
      m_log((m_options.folder / "service.log").string()) {
    const auto database =
        m_options.database.empty() ? m_options.folder / "media.db" : m_options.database;
    std::vector<std::string> words = {
        ENDURANCE_SERVICE, "--address",   "unix:path=" + m_socket, "--usb",
        "directory",       "--usb-root",  m_options.usbRoot,       "--database",
        database,          "--extractor", m_options.extractor,     "--log-level",
        m_options.logLevel};
    std::vector<std::string> environment = Environment(m_options.environment);
    const std::vector<char*> arguments = Pointers(words);
    const std::vector<char*> variables = Pointers(environment);
    m_pid = fork();
    if (m_pid < 0) throw std::runtime_error("cannot fork");
    if (m_pid > 0) return;
    const int log = open(m_log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    if (m_options.inChild) m_options.inChild();
    execve(arguments[0], arguments.data(), variables.data());
    _exit(127);
}

ServiceProcess::~ServiceProcess() {
    if (IsRunning()) Kill();
}

bool ServiceProcess::WaitUntilServing(std::chrono::seconds deadline) {
    const auto serves = [this] {
        try {
            NewClient();
            return true;
        } catch (const std::runtime_error&) {
            return !IsRunning();
        }
    };
    return WaitUntil(serves, deadline) && IsRunning();
}

std::unique_ptr<test::DBusClient> ServiceProcess::NewClient() const {
    return std::make_unique<test::DBusClient>(m_socket);
}

bool ServiceProcess::IsRunning() {
    if (m_status) return false;
    int status = 0;
    if (waitpid(m_pid, &status, WNOHANG) == 0) return true;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return false;
}

bool ServiceProcess::WaitForEnd(std::chrono::seconds deadline) {
    return WaitUntil([this] { return !IsRunning(); }, deadline);
}

std::optional<int> ServiceProcess::Stop(std::chrono::seconds deadline) {
    if (IsRunning()) kill(m_pid, SIGTERM);
    if (WaitForEnd(deadline)) return m_status;
    Kill();
    return std::nullopt;
}

void ServiceProcess::Kill() {
    if (!IsRunning()) return;
    kill(m_pid, SIGKILL);
    WaitForEnd(test::kDeadline);
}

std::string ServiceProcess::Log() const {
    std::ostringstream text;
    text << std::ifstream(m_log).rdbuf();
    return text.str();
}

bool ServiceProcess::WaitForLog(const std::string& text, std::chrono::seconds deadline) {
    return WaitUntil([&] { return Log().find(text) != std::string::npos; }, deadline);
}

}  // namespace endurance
