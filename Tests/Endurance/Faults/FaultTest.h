// The real service with something of its world broken on purpose.
#ifndef TESTS_ENDURANCE_FAULTS_FAULT_TEST_H
#define TESTS_ENDURANCE_FAULTS_FAULT_TEST_H

#include <filesystem>
#include <string>

#include "Service/ServiceTest.h"

namespace test {

constexpr int kPhotos = 40;

// A file system of the test's own, seen by it and by the processes it starts; unmounted with the
// object. What fails throws std::runtime_error.
class OwnMount {
public:
    OwnMount(const std::string& command, std::filesystem::path at);
    ~OwnMount();
    OwnMount(const OwnMount&) = delete;
    OwnMount& operator=(const OwnMount&) = delete;

private:
    std::filesystem::path m_at;
};

// False where the user may not mount; the test is then skipped, visibly.
bool MayMount();
void RunCommand(const std::string& command);  // throws when it fails

class FaultTest : public ServiceTest {
protected:
    // A stick with `count` photos.
    std::filesystem::path AddPhotos(const std::string& name, int count = kPhotos);
    // What a new client counts on the stick.
    int CountOn(const std::filesystem::path& stick) const;
};

}  // namespace test

#endif
