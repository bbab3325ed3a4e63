// What a run has done and seen, and what it found wrong.
#ifndef TESTS_ENDURANCE_LEDGER_H
#define TESTS_ENDURANCE_LEDGER_H

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace test {

using Clock = std::chrono::steady_clock;

// Any thread.
class Ledger {
public:
    // One thing done; `took` counts for the longest time of its kind.
    void Done(const std::string& what, Clock::duration took = {});
    // An answer that says no, or a D-Bus error; expected in their number, listed by kind.
    void Refused(const std::string& kind);
    // Something that must not happen. The first hundred are printed at once and at the end.
    void Wrong(const std::string& what);

    long Total() const;
    long WrongTotal() const;
    void Print() const;

private:
    struct Entry {
        long times = 0;
        Clock::duration longest{};
    };
    mutable std::mutex m_mutex;
    std::map<std::string, Entry> m_done;  // these are guarded by m_mutex
    std::map<std::string, long> m_refused;
    long m_wrong = 0;
};

}  // namespace test

#endif
