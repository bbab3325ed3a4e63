// What happens around the service while the soak's clients are at work.
#ifndef TESTS_ENDURANCE_SOAK_TROUBLE_H
#define TESTS_ENDURANCE_SOAK_TROUBLE_H

#include <sys/types.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Endurance/SoakWorld.h"

namespace test {

// Sticks come and go, files change, helpers and clients are killed: each on a thread of its own,
// from here on until the world's stop is set. The end waits for the threads and removes what was
// left where a stick was pulled out between two steps.
class SoakTrouble {
public:
    SoakTrouble(SoakWorld& world, pid_t service, unsigned long seed);
    ~SoakTrouble();
    SoakTrouble(const SoakTrouble&) = delete;
    SoakTrouble& operator=(const SoakTrouble&) = delete;

private:
    using Random = std::mt19937_64;

    void PlugAndUnplug(Random random);
    void ChangeFiles(Random random);
    void KillHelpers(Random random);
    void KillClients(Random random);
    // Between so many milliseconds, or until stop is set.
    void Pause(Random& random, int least, int most);

    SoakWorld& m_world;
    const pid_t m_service;
    std::vector<std::thread> m_threads;
};

}  // namespace test

#endif
