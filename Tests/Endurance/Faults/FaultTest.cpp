#include "Endurance/Faults/FaultTest.h"

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <stdexcept>

namespace test {

namespace fs = std::filesystem;

OwnMount::OwnMount(const std::string& command, fs::path at) : m_at(std::move(at)) {
    fs::create_directories(m_at);
    RunCommand(command + " '" + m_at.string() + "'");
}

OwnMount::~OwnMount() {
    umount2(m_at.c_str(), MNT_DETACH);
}

bool MayMount() {
    static const bool may = geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
                            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return may;
}

void RunCommand(const std::string& command) {
    if (system((command + " >&2").c_str()) != 0) throw std::runtime_error("failed: " + command);
}

fs::path FaultTest::AddPhotos(const std::string& name, int count) {
    fs::create_directories("fault-samples");  // kept: every test wants some
    const fs::path samples = "fault-samples/photos-" + std::to_string(count);
    MakeSamples("--photos", samples, count - 1);  // and a broken one by itself
    return m_sticks.Add(name, samples);
}

int FaultTest::CountOn(const fs::path& stick) const {
    MediaClient client(Socket());
    return client.Query(client.StorageAt(stick));
}

}  // namespace test
