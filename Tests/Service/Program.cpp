#include "Service/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace test {
namespace {

// The variables, and of this process's own those that they do not replace.
std::vector<std::string> Environment(const Variables& variables) {
    std::vector<std::string> all;
    std::set<std::string> given;
    for (const auto& [name, value] : variables)
        if (given.insert(name).second) all.push_back(name + "=" + value);
    for (char** at = environ; *at; ++at) {
        const std::string line = *at;
        if (given.count(line.substr(0, line.find('='))) == 0) all.push_back(line);
    }
    return all;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

pid_t Start(std::vector<std::string> words, const std::string& output, const std::string& errors,
            const Variables& variables, const std::function<void()>& inChild) {
    std::vector<std::string> environment = Environment(variables);
    const std::vector<char*> arguments = Pointers(words);
    const std::vector<char*> lines = Pointers(environment);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("no child process");
    if (pid > 0) return pid;
    constexpr int kAppend = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    dup2(open(output.c_str(), kAppend, 0600), STDOUT_FILENO);
    dup2(open(errors.c_str(), kAppend, 0600), STDERR_FILENO);
    if (inChild) inChild();
    execvpe(arguments[0], arguments.data(), lines.data());
    _exit(127);
}

int StatusOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

bool WaitForText(const std::string& path, const std::string& text) {
    return Until([&] { return ReadFile(path).find(text) != std::string::npos; });
}

Outcome RunProgram(const std::vector<std::string>& arguments, const Variables& environment) {
    const TempFolder folder;
    Program program(arguments, folder / "out", environment, folder / "err");
    const int status = program.Wait();
    return {status, ReadFile(folder / "out"), ReadFile(folder / "err")};
}

Program::Program(const std::vector<std::string>& arguments, const std::string& logFile,
                 const Variables& environment, const std::string& errorFile,
                 const std::function<void()>& inChild)
    : m_pid(Start(arguments, logFile, errorFile.empty() ? logFile : errorFile, environment,
                  inChild)) {}

Program::~Program() {
    if (!IsRunning()) return;
    Signal(SIGKILL);
    Wait();
}

void Program::Signal(int number) const {
    if (!m_ended) kill(m_pid, number);
}

bool Program::IsRunning() {
    int status = 0;
    if (m_ended || waitpid(m_pid, &status, WNOHANG) == 0) return !m_ended;
    m_ended = true;
    m_status = StatusOf(status);
    return false;
}

int Program::Wait(std::chrono::seconds deadline) {
    return Until([this] { return !IsRunning(); }, deadline) ? m_status : -1;
}

}  // namespace test
