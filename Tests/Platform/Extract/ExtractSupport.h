// What the extraction tests share.
#ifndef TESTS_PLATFORM_EXTRACT_EXTRACT_SUPPORT_H
#define TESTS_PLATFORM_EXTRACT_EXTRACT_SUPPORT_H

#include <mutex>
#include <string>
#include <vector>

#include "MediaContent/Extract/Extractor.h"
#include "Process/UniqueFd.h"
#include "Service/Vitals.h"
#include "Support/Basics.h"

using test::ChildrenOf;
using test::TempFolder;

// Runs a program and returns what it wrote to its standard output; fails the test unless it
// ended with 0.
std::string Output(const std::vector<std::string>& command);

// The media files below `root` (hidden ones too), relative to it, in order.
std::vector<std::string> FilesBelow(const std::string& root);

platform::UniqueFd OpenFile(const std::string& path);

// Extract with the kind and type that the name says, never cancelled.
platform::ExtractResult ExtractPath(platform::ExtractorPool& pool, const std::string& path);
std::vector<platform::ExtractResult> ExtractPaths(platform::ExtractorPool& pool,
                                                  const std::vector<std::string>& paths,
                                                  platform::LostTime* lost = nullptr);

// The real helper, with time enough for every file.
platform::ExtractorOptions RealHelper();

// The log lines written while it lives.
class LogLines {
public:
    LogLines();
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    // Those that contain `part`, one after the other.
    std::string With(const std::string& part) const;
    size_t Count(const std::string& part) const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

// Checks at its end that the process has as many descriptors and children as it had at the start.
class NothingLeft {
public:
    NothingLeft();
    ~NothingLeft();
    NothingLeft(const NothingLeft&) = delete;
    NothingLeft& operator=(const NothingLeft&) = delete;

private:
    const test::Vitals m_before;
};

#endif
