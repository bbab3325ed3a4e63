#include "EndToEnd/Support/Programs.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
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

pid_t Start(std::vector<std::string> words, const std::string& output, const std::string& errors,
            const Variables& environment) {
    for (const auto& [name, value] : environment) words.insert(words.begin(), name + "=" + value);
    words.insert(words.begin(), "env");
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int kAppend = O_WRONLY | O_CREAT | O_APPEND;
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), kAppend, 0600);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, errors.c_str(), kAppend, 0600);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("no child process");
    return pid;
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
    Program program(arguments, output, environment, errors);
    const int status = program.Wait();
    Outcome outcome{status, ReadFile(output), ReadFile(errors)};
    unlink(output.c_str());
    unlink(errors.c_str());
    rmdir(folder);
    return outcome;
}

Program::Program(const std::vector<std::string>& arguments, const std::string& logFile,
                 const Variables& environment, const std::string& errorFile)
    : m_pid(Start(arguments, logFile, errorFile.empty() ? logFile : errorFile, environment)) {}

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
