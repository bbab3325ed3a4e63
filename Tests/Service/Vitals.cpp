#include "Service/Vitals.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

namespace test {
namespace {

namespace fs = std::filesystem;

fs::path FolderOf(pid_t process) {
    return "/proc/" + std::to_string(process);
}

// The number behind `key` in a status file; 0 when there is none.
long NumberIn(const fs::path& file, const std::string& key) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        if (line.compare(0, key.size(), key) == 0) return std::stol(line.substr(key.size()));
    return 0;
}

// Entries that vanish during the walk are left out.
std::vector<fs::path> EntriesOf(const fs::path& folder) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
        entries.push_back(at->path());
    return entries;
}

}  // namespace

Vitals ReadVitals(pid_t process) {
    const fs::path folder = FolderOf(process);
    Vitals vitals;
    vitals.residentKiB = NumberIn(folder / "status", "VmRSS:");
    vitals.peakKiB = NumberIn(folder / "status", "VmHWM:");
    vitals.privateKiB = NumberIn(folder / "status", "RssAnon:");
    vitals.threads = NumberIn(folder / "status", "Threads:");
    vitals.descriptors = static_cast<long>(EntriesOf(folder / "fd").size());
    vitals.children = static_cast<long>(ChildrenOf(process).size());
    return vitals;
}

std::set<pid_t> ChildrenOf(pid_t process) {
    std::set<pid_t> children;
    for (const auto& task : EntriesOf(FolderOf(process) / "task")) {
        std::ifstream in(task / "children");
        for (pid_t child = 0; in >> child;) children.insert(child);
    }
    return children;
}

}  // namespace test
