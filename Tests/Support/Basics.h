// What the tests of all parts share: a folder of their own, and a way to wait.
#ifndef TESTS_SUPPORT_BASICS_H
#define TESTS_SUPPORT_BASICS_H

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace test {

constexpr std::chrono::seconds kDeadline{60};  // generous: sanitizers, two cores, other builds

// A folder of its own that goes with the object.
class TempFolder {
public:
    TempFolder() {
        if (!mkdtemp(m_path.data())) throw std::runtime_error("no temporary folder");
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path = (std::filesystem::temp_directory_path() / "media-test-XXXXXX").string();
};

// Looks every few milliseconds until the condition holds; false when it does not in time.
inline bool Until(const std::function<bool()>& condition,
                  std::chrono::milliseconds deadline = kDeadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace test

#endif
