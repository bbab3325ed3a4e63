#include "ExtractSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "MediaContent/Extract/MediaTypes.h"

namespace fs = std::filesystem;

TempFolder::TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "extract-test-XXXXXX").string();
    m_path = mkdtemp(pattern.data());
}

TempFolder::~TempFolder() {
    fs::remove_all(m_path);
}

std::string Output(const std::vector<std::string>& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {};
    platform::UniqueFd reading(ends[0]);
    platform::UniqueFd writing(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, writing.Get(), STDOUT_FILENO);
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t pid = 0;
    const int error =
        posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(error, 0) << command[0];
    if (error) return {};
    writing.Close();
    std::string output;
    char block[4096];
    for (ssize_t got; (got = read(reading.Get(), block, sizeof block)) > 0;)
        output.append(block, static_cast<size_t>(got));
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0) << command[0];
    return output;
}

std::vector<std::string> FilesBelow(const std::string& root) {
    std::vector<std::string> files;
    media_content_type_e kind;
    const char* mime;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path().string();
        std::error_code loopOfLinks;
        if (entry.is_regular_file(loopOfLinks) && platform::LookUpMediaType(path, kind, mime))
            files.push_back(path.substr(root.size() + 1));
    }
    std::sort(files.begin(), files.end());
    return files;
}

platform::UniqueFd OpenFile(const std::string& path) {
    return platform::UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

platform::ExtractResult ExtractPath(platform::ExtractorPool& pool, const std::string& path) {
    return ExtractPaths(pool, {path})[0];
}

std::vector<platform::ExtractResult> ExtractPaths(platform::ExtractorPool& pool,
                                                  const std::vector<std::string>& paths) {
    std::vector<platform::UniqueFd> open;
    std::vector<platform::ExtractFile> files;
    for (const std::string& path : paths) {
        open.push_back(OpenFile(path));
        EXPECT_TRUE(open.back()) << path;
        platform::ExtractFile file;
        file.fd = open.back().Get();
        EXPECT_TRUE(platform::LookUpMediaType(path, file.kind, file.mime)) << path;
        files.push_back(file);
    }
    const std::atomic<bool> cancel{false};
    return pool.Extract(files, cancel);
}

std::set<pid_t> ChildrenOf(pid_t pid) {
    std::set<pid_t> children;
    std::error_code gone;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const auto& task : fs::directory_iterator(tasks, gone)) {
        std::ifstream list(task.path() / "children");
        for (pid_t child; list >> child;) children.insert(child);
    }
    return children;
}

std::set<int> DescriptorsOf(pid_t pid) {
    std::set<int> descriptors;
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", gone)) {
        // Not the one that lists them.
        if (fs::exists(entry.symlink_status()))
            descriptors.insert(std::stoi(entry.path().filename()));
    }
    if (pid == getpid()) {
        for (auto i = descriptors.begin(); i != descriptors.end();)
            i = fcntl(*i, F_GETFD) < 0 ? descriptors.erase(i) : std::next(i);
    }
    return descriptors;
}

bool Eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

NothingLeft::NothingLeft()
    : m_descriptors(DescriptorsOf(getpid())), m_children(ChildrenOf(getpid())) {}

NothingLeft::~NothingLeft() {
    EXPECT_EQ(DescriptorsOf(getpid()), m_descriptors);
    EXPECT_EQ(ChildrenOf(getpid()), m_children);
}
