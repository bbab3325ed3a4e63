// What the long runs share: their command line, and the judgement of the service afterwards.
#ifndef TESTS_ENDURANCE_LONG_RUN_H
#define TESTS_ENDURANCE_LONG_RUN_H

#include <functional>
#include <string>
#include <vector>

#include "Endurance/Ledger.h"
#include "Service/ServiceProcess.h"
#include "Service/Vitals.h"

namespace test {

struct RunOptions {
    std::string unit;        // "seconds", "count": the amount's word, as --seconds N
    long amount;             // how long the run is, in that unit
    long least;              // below it a run shows nothing
    unsigned long seed = 0;  // random when it is not given
    std::string samples = "soak-samples";
};

// Reads --UNIT N, --seed N and --samples DIR over the defaults and calls `run`; its result, 1 when
// it throws, 2 for other words.
int RunWith(const std::vector<std::string>& words, RunOptions options,
            const std::function<int(const RunOptions&)>& run);

// When nobody is connected and nothing has changed for some seconds.
Vitals QuietVitals(pid_t service);
// Prints both, and puts down as wrong what has grown by more than it may.
void JudgeGrowth(pid_t service, const Vitals& start, const Vitals& end, Ledger& ledger);

// Prints the ledger, and the service's log when something is wrong; the exit status.
int Verdict(const ServiceProcess& service, const Ledger& ledger);
// Stops the service, which must end well.
void StopWell(ServiceProcess& service, Ledger& ledger);

}  // namespace test

#endif
