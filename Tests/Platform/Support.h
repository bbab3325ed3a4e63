// What the tests of all parts of the platform layer share.
#ifndef TESTS_PLATFORM_SUPPORT_H
#define TESTS_PLATFORM_SUPPORT_H

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace test {

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
    std::string m_path = (std::filesystem::temp_directory_path() / "platform-test-XXXXXX").string();
};

// Looks every few milliseconds until the condition holds; false when it does not within a minute.
inline bool Until(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace test

#endif
