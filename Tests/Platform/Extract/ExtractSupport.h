// What the extraction tests share.
#ifndef TESTS_PLATFORM_EXTRACT_EXTRACT_SUPPORT_H
#define TESTS_PLATFORM_EXTRACT_EXTRACT_SUPPORT_H

#include <sys/types.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/Extract/UniqueFd.h"

// A folder of its own that goes with the object.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// Runs a program and returns what it wrote to its standard output; fails the test unless it
// ended with 0.
std::string Output(const std::vector<std::string>& command);

// The media files below `root` (hidden ones too), relative to it, in order.
std::vector<std::string> FilesBelow(const std::string& root);

platform::UniqueFd OpenFile(const std::string& path);

// Extract with the kind and type that the name says, never cancelled.
platform::ExtractResult ExtractPath(platform::ExtractorPool& pool, const std::string& path);

std::vector<platform::ExtractResult> ExtractPaths(platform::ExtractorPool& pool,
                                                  const std::vector<std::string>& paths);

std::set<pid_t> ChildrenOf(pid_t pid);
std::set<int> DescriptorsOf(pid_t pid);

// Looks every few milliseconds until `condition` is true; false after ten seconds.
bool Eventually(const std::function<bool()>& condition);

// Checks at its end that the process has the descriptors and children that it had at the start.
class NothingLeft {
public:
    NothingLeft();
    ~NothingLeft();
    NothingLeft(const NothingLeft&) = delete;
    NothingLeft& operator=(const NothingLeft&) = delete;

private:
    std::set<int> m_descriptors;
    std::set<pid_t> m_children;
};

#endif
