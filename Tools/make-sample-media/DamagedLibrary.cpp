#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Files.h"
#include "Libraries.h"

namespace samples {
namespace {

struct Original {
    std::string suffix;
    std::string bytes;
};

std::vector<Original> GoodFiles(const std::string& root) {
    std::vector<std::string> paths;
    for (const char* folder : {"/Photos", "/Music", "/Videos"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root + folder)) {
            if (entry.is_regular_file()) paths.push_back(entry.path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    std::vector<Original> files;
    files.reserve(paths.size());
    for (const std::string& path : paths)
        files.push_back({std::filesystem::path(path).extension().string(), ReadFile(path)});
    return files;
}

class Damage {
public:
    explicit Damage(unsigned seed) : m_random(seed) {}

    std::string Of(std::string bytes) {
        // Readers mostly look at the start and the end of a file.
        const size_t reach = Below(2) ? bytes.size() : std::min<size_t>(bytes.size(), 1024);
        const size_t kind = Below(4);
        const size_t at = Below(reach);
        if (kind == 0) {
            bytes.resize(at);
        } else if (kind == 1) {
            const size_t from = Below(reach);
            bytes.insert(at, bytes.substr(from, Below(512)));
        } else if (kind == 2) {
            Fill(bytes, at, Below(64), at % 2 ? '\0' : '\xff');
        } else {
            for (size_t count = 1 + Below(20); count > 0; --count) Change(bytes[Below(reach)]);
        }
        return bytes;
    }

private:
    // The standard library's distributions differ between implementations; this does not.
    size_t Below(size_t limit) { return m_random() % std::max<size_t>(limit, 1); }
    void Change(char& byte) { byte = static_cast<char>(m_random()); }
    static void Fill(std::string& bytes, size_t from, size_t length, char with) {
        for (size_t i = from; i < std::min(bytes.size(), from + length); ++i) bytes[i] = with;
    }

    std::mt19937 m_random;
};

}  // namespace

void MakeDamagedLibrary(const std::string& root, unsigned count) {
    const std::string workshop = root + "/.making";
    MakeSmallLibrary(workshop);
    const std::vector<Original> files = GoodFiles(workshop);
    RemoveTree(workshop);
    for (unsigned i = 0; i < count; ++i) {
        const Original& file = files[i % files.size()];
        const std::string folder = root + "/" + std::to_string(i / 1000);
        if (i % 1000 == 0) MakeFolders(folder);
        WriteFile(folder + "/damaged-" + std::to_string(i) + file.suffix, Damage(i).Of(file.bytes));
    }
}

}  // namespace samples
