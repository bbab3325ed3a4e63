// What the long runs share: their command line, their ledger, and the judgement of the service
// afterwards.
#ifndef TESTS_ENDURANCE_LONG_RUN_H
#define TESTS_ENDURANCE_LONG_RUN_H

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Service/ServiceProcess.h"
#include "Service/Vitals.h"

namespace test {

using Clock = std::chrono::steady_clock;

// What a run has done and seen, and what it found wrong. Any thread.
class Ledger {
public:
    // One thing done; `took` counts for the longest time of its kind.
    void Done(const std::string& what, Clock::duration took = {});
    // An answer that says no, or a D-Bus error; expected in their number, listed by kind.
    void Refused(const std::string& kind);
    // Something that must not happen. The first hundred are printed at once.
    void Wrong(const std::string& what);

    long WrongTotal() const { return m_wrong; }
    void Print() const;

private:
    struct Entry {
        long times = 0;
        Clock::duration longest{};
    };
    mutable std::mutex m_mutex;
    std::map<std::string, Entry> m_done;  // these two are guarded by m_mutex
    std::map<std::string, long> m_refused;
    std::atomic<long> m_wrong{0};
};

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
void JudgeGrowth(const Vitals& start, const Vitals& end, Ledger& ledger);

// Prints the ledger, and the service's log when something is wrong; the exit status.
int Verdict(const ServiceProcess& service, const Ledger& ledger);
// Stops the service, which must end well.
void StopWell(ServiceProcess& service, Ledger& ledger);

}  // namespace test

#endif
