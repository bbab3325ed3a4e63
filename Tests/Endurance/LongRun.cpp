#include "Endurance/LongRun.h"

#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace test {
namespace {

using std::chrono::seconds;

// GLib keeps up to two idle threads of its pools, and makes them when it likes.
constexpr long kThreadSlack = 2;
constexpr long kPrinted = 100;  // things that are wrong
// What the heap does not give back for its pieces, whatever the length of the run: a slow
// reader's 64 MiB pass through it every few seconds.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kMemorySlackKiB = 1L << 30;  // not judged: a sanitizer keeps what is freed
constexpr long kPeakKiB = 1L << 30;
#else
constexpr long kMemorySlackKiB = 16 * 1024;
constexpr long kPeakKiB = 256 * 1024;
#endif

// False for words that are none of ours.
bool Read(const std::vector<std::string>& words, RunOptions& options) {
    for (size_t i = 0; i + 1 < words.size(); i += 2) {
        const char* value = words[i + 1].c_str();
        if (words[i] == "--" + options.unit)
            options.amount = std::atol(value);
        else if (words[i] == "--seed")
            options.seed = std::strtoul(value, nullptr, 10);
        else if (words[i] == "--samples")
            options.samples = value;
        else
            return false;
    }
    return words.size() % 2 == 0 && options.amount >= options.least;
}

bool IsLike(const Vitals& a, const Vitals& b) {
    return a.threads == b.threads && a.descriptors == b.descriptors && a.children == b.children;
}

void Judge(const char* what, long start, long end, long slack, Ledger& ledger) {
    std::printf("%-28s %12ld %12ld   may grow by %ld\n", what, start, end, slack);
    if (end > start + slack) ledger.Wrong(std::string(what) + " has grown");
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
    if (m_wrong++ < kPrinted) std::printf("WRONG: %s\n", what.c_str());
    std::fflush(stdout);
}

void Ledger::Print() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    long total = 0;
    std::printf("%-40s %10s %12s\n", "done", "times", "longest ms");
    for (const auto& [what, entry] : m_done) {
        const std::chrono::duration<double, std::milli> longest = entry.longest;
        std::printf("%-40s %10ld %12.0f\n", what.c_str(), entry.times, longest.count());
        total += entry.times;
    }
    std::printf("refused, by kind:\n");
    for (const auto& [kind, times] : m_refused) std::printf("  %-60s %10ld\n", kind.c_str(), times);
    std::printf("%ld operations, wrong: %ld\n", total, m_wrong.load());
}

int RunWith(const std::vector<std::string>& words, RunOptions options,
            const std::function<int(const RunOptions&)>& run) {
    signal(SIGPIPE, SIG_IGN);
    options.seed = std::random_device()();
    if (!Read(words, options)) {
        std::fprintf(stderr, "takes: [--%s N] [--seed N] [--samples DIR], N at least %ld\n",
                     options.unit.c_str(), options.least);
        return 2;
    }
    std::printf("%s: %ld, seed %lu\n", options.unit.c_str(), options.amount, options.seed);
    std::fflush(stdout);
    try {
        return run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

Vitals QuietVitals(pid_t service) {
    Vitals last = ReadVitals(service);
    auto since = Clock::now();
    Until(
        [&] {
            const Vitals now = ReadVitals(service);
            if (!IsLike(last, now)) since = Clock::now();
            last = now;
            return Clock::now() - since > seconds(3) && last.children == 0;
        },
        seconds(60));
    return last;
}

void JudgeGrowth(const Vitals& start, const Vitals& end, Ledger& ledger) {
    std::printf("\n%-28s %12s %12s\n", "service, when quiet", "start", "end");
    // Whatever the clients want at once: Docs/decisions/client-memory.md.
    Judge("most resident memory, KiB", 0, end.peakKiB, kPeakKiB, ledger);
    Judge("memory of its own, KiB", start.privateKiB, end.privateKiB, kMemorySlackKiB, ledger);
    std::printf("%-28s %12ld %12ld\n", "resident, KiB", start.residentKiB, end.residentKiB);
    Judge("threads", start.threads, end.threads, kThreadSlack, ledger);
    Judge("descriptors", start.descriptors, end.descriptors, 0, ledger);
    Judge("child processes", start.children, end.children, 0, ledger);
}

void StopWell(ServiceProcess& service, Ledger& ledger) {
    const int status = service.Stop();
    if (status == -1) ledger.Wrong("the service does not end");
    if (status > 0) ledger.Wrong("the service ended with " + std::to_string(status));
}

int Verdict(const ServiceProcess& service, const Ledger& ledger) {
    ledger.Print();
    const bool passed = ledger.WrongTotal() == 0;
    if (!passed) std::printf("log:\n%s\n", service.Log().c_str());
    std::printf("%s\n", passed ? "passed" : "FAILED");
    return passed ? 0 : 1;
}

}  // namespace test
