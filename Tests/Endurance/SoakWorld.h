// The sticks of the soak, and what the service knows of them.
#ifndef TESTS_ENDURANCE_SOAK_WORLD_H
#define TESTS_ENDURANCE_SOAK_WORLD_H

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "Endurance/Ledger.h"
#include "Service/Sticks.h"

namespace test {

// Its lists do not change once they are learnt; any thread may read them.
class SoakWorld {
public:
    // Four sticks of real media files, one of hostile ones and a camera, plugged in.
    SoakWorld(const std::filesystem::path& folder, const std::filesystem::path& samples);

    // Asks the service at `socket`; false when it does not tell of every stick.
    bool Learn(const std::string& atSocket);
    // One line a storage and kind, when the scans are over.
    std::vector<std::string> CountAll();

    Sticks sticks;
    const std::vector<std::string> names = {"ALL", "PHOTOS", "MIXED", "OTHER", "HOSTILE"};
    std::string socket;
    std::vector<std::string> storages;  // their ids, also of those that are away now
    std::vector<std::string> folders;   // as clients write them
    std::vector<std::string> files;
    Ledger ledger;
    std::atomic<bool> stop{false};

private:
    void LearnPaths(const std::string& name);
};

}  // namespace test

#endif
