#include "ExtractSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>

#include "Log/Log.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "Service/Program.h"

namespace fs = std::filesystem;

std::string Output(const std::vector<std::string>& command) {
    const test::Outcome outcome = test::RunProgram(command);
    EXPECT_EQ(outcome.status, 0) << command[0] << ": " << outcome.errors;
    return outcome.output;
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
                                                  const std::vector<std::string>& paths,
                                                  platform::LostTime* lost) {
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
    return pool.Extract(files, cancel, lost);
}

platform::ExtractorOptions RealHelper() {
    platform::ExtractorOptions options;
    options.helperPath = EXTRACT_HELPER;
    options.deadlineMs = 30'000;
    return options;
}

LogLines::LogLines() {
    platform::SetLogSink([this](const platform::LogLine& line) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(line.text);
    });
}

LogLines::~LogLines() {
    platform::SetLogSink({});
}

std::string LogLines::With(const std::string& part) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::string found;
    for (const std::string& line : m_lines)
        if (line.find(part) != std::string::npos) found += line + '\n';
    return found;
}

size_t LogLines::Count(const std::string& part) const {
    const std::string found = With(part);
    return static_cast<size_t>(std::count(found.begin(), found.end(), '\n'));
}

NothingLeft::NothingLeft() : m_before(test::ReadVitals(getpid())) {}

NothingLeft::~NothingLeft() {
    EXPECT_EQ(test::ReadVitals(getpid()).descriptors, m_before.descriptors);
    EXPECT_EQ(test::ReadVitals(getpid()).children, m_before.children);
}
