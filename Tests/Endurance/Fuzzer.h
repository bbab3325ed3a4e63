// One client that sends random commands, many at a time.
#ifndef TESTS_ENDURANCE_FUZZER_H
#define TESTS_ENDURANCE_FUZZER_H

#include <atomic>
#include <string>
#include <vector>

#include "Endurance/Ledger.h"

namespace test {

struct FuzzWorld {
    std::string socket;
    std::vector<std::string> storages;
    std::vector<std::string> paths;
    std::vector<std::string> mediaIds;
    Ledger ledger;
    std::atomic<bool> stop{false};  // set at the first thing that is wrong
};

// Sends so many commands on the calling thread, and returns when all are answered.
void SendRandomCommands(FuzzWorld& world, unsigned long seed, long count);

}  // namespace test

#endif
