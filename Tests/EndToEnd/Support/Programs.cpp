#include "EndToEnd/Support/Programs.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace test {
namespace {

constexpr std::chrono::seconds kDeadline{120};

// Everything the child needs is made before the fork: other threads may hold the heap's lock.
class ChildArguments {
public:
    ChildArguments(const std::vector<std::string>& arguments, const Variables& environment)
        : m_words(arguments) {
        for (char** entry = environ; *entry; ++entry) {
            const std::string text = *entry;
            bool replaced = false;
            for (const auto& [name, value] : environment)
                replaced = replaced || text.compare(0, name.size() + 1, name + "=") == 0;
            if (!replaced) m_variables.push_back(text);
        }
        for (const auto& [name, value] : environment) m_variables.push_back(name + "=" + value);
        for (auto& word : m_words) m_argv.push_back(word.data());
        for (auto& variable : m_variables) m_envp.push_back(variable.data());
        m_argv.push_back(nullptr);
        m_envp.push_back(nullptr);
    }

    [[noreturn]] void Exec() {
        execvpe(m_argv[0], m_argv.data(), m_envp.data());
        _exit(127);
    }

private:
    std::vector<std::string> m_words;
    std::vector<std::string> m_variables;
    std::vector<char*> m_argv;
    std::vector<char*> m_envp;
};

pid_t Start(const std::vector<std::string>& arguments, const std::string& output,
            const std::string& errors, const Variables& environment) {
    ChildArguments child(arguments, environment);
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("no child process");
    if (pid > 0) return pid;
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int err =
        output == errors ? out : open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    child.Exec();
}

int StatusOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

Outcome RunProgram(const std::vector<std::string>& arguments, const Variables& environment) {
    char folder[] = "/tmp/cm-program-XXXXXX";
    if (!mkdtemp(folder)) throw std::runtime_error("no temporary folder");
    const std::string output = std::string(folder) + "/out";
    const std::string errors = std::string(folder) + "/err";
    pid_t pid = Start(arguments, output, errors, environment);
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    int status = 0;
    bool late = false;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (!late && std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            late = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    Outcome outcome{late ? -1 : StatusOf(status), ReadFile(output), ReadFile(errors)};
    unlink(output.c_str());
    unlink(errors.c_str());
    rmdir(folder);
    return outcome;
}

Program::Program(const std::vector<std::string>& arguments, const std::string& logFile,
                 const Variables& environment)
    : m_pid(Start(arguments, logFile, logFile, environment)) {}

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

int Program::Wait() {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (IsRunning()) {
        if (std::chrono::steady_clock::now() > deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return m_status;
}

}  // namespace test
