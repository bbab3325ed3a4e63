#include "Endurance/Ledger.h"

#include <algorithm>
#include <cstdio>

namespace test {
namespace {

constexpr long kPrinted = 100;

long Milliseconds(Clock::duration time) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

}  // namespace

void Ledger::Done(const std::string& what, Clock::duration took) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Entry& entry = m_done[what];
    ++entry.times;
    entry.longest = std::max(entry.longest, took);
}

void Ledger::Refused(const std::string& kind) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_refused[kind];
}

void Ledger::Wrong(const std::string& what) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_wrong++ < kPrinted) std::printf("WRONG: %s\n", what.c_str());
    std::fflush(stdout);
}

long Ledger::Total() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    long total = 0;
    for (const auto& [what, entry] : m_done) total += entry.times;
    return total;
}

long Ledger::WrongTotal() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_wrong;
}

void Ledger::Print() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::printf("%-40s %10s %12s\n", "done", "times", "longest ms");
    for (const auto& [what, entry] : m_done)
        std::printf("%-40s %10ld %12ld\n", what.c_str(), entry.times, Milliseconds(entry.longest));
    std::printf("refused, by kind:\n");
    for (const auto& [kind, times] : m_refused) std::printf("  %-60s %10ld\n", kind.c_str(), times);
    std::printf("wrong: %ld\n", m_wrong);
}

}  // namespace test
