// Five clients with random commands on real media files, while sticks come and go, one of them
// hostile, clients and metadata helpers are killed, others read nothing of what they asked for, and
// others ask for as much as they can. Afterwards the
// service must be as small as before, and know what it knew.
#include <sys/prctl.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <map>
#include <random>
#include <thread>

#include "Endurance/LongRun.h"
#include "Endurance/SoakClient.h"
#include "Endurance/SoakTrouble.h"

namespace test {
namespace {

using std::chrono::seconds;

constexpr int kClients = 5;
constexpr long kLooks = 6;  // at the quiet service, after the warm-up's

class Soak {
public:
    explicit Soak(const RunOptions& options);
    int Run();

private:
    ServiceOptions Options() const;
    void Chaos(seconds length);
    Vitals Chain(const Vitals& start, long length);
    void Compare(const std::vector<std::string>& before, const std::vector<std::string>& after);

    const RunOptions m_options;
    const TempFolder m_scratch;
    SoakWorld m_world;
    unsigned long m_stretch = 0;
    ServiceProcess m_service;
};

Soak::Soak(const RunOptions& options)
    : m_options(options), m_world(m_scratch.Path(), options.samples), m_service(Options()) {}

ServiceOptions Soak::Options() const {
    ServiceOptions options;
    options.folder = m_scratch.Path();
    options.usbRoot = m_world.sticks.Root();
    options.logLevel = "error";
    return options;
}

void Soak::Chaos(seconds length) {
    m_world.stop = false;
    std::mt19937_64 seeds(m_options.seed + ++m_stretch);
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back([this, seed = seeds()] { SoakClient(m_world, seed).Run(); });
    const SoakTrouble trouble(m_world, m_service.Pid(), seeds());
    if (Until([this] { return !m_service.IsRunning(); }, length))
        m_world.ledger.Wrong("the service ended by itself");
    m_world.stop = true;
    for (auto& client : clients) client.join();
}

// Some stretches with a look at the quiet service after each, so that a slow growth and a level
// that swings can be told apart.
Vitals Soak::Chain(const Vitals& start, long length) {
    const long looks = std::clamp(length / 60, 1L, kLooks);
    std::printf("memory of its own, KiB, after each stretch: %ld", start.privateKiB);
    Vitals last = start;
    for (long i = 0; i < looks; ++i) {
        Chaos(seconds(length / looks));
        last = QuietVitals(m_service.Pid());
        std::printf(" %ld", last.privateKiB);
        std::fflush(stdout);
    }
    std::printf("\n");
    return last;
}

void Soak::Compare(const std::vector<std::string>& before, const std::vector<std::string>& after) {
    for (size_t i = 0; i < before.size() || i < after.size(); ++i) {
        const std::string was = i < before.size() ? before[i] : "nothing";
        const std::string is = i < after.size() ? after[i] : "nothing";
        if (was != is)
            m_world.ledger.Wrong("counted " + was + " at the start, " + is + " at the end");
    }
}

int Soak::Run() {
    if (!m_service.WaitUntilServing() || !m_world.Learn(m_service.Socket())) {
        m_world.ledger.Wrong("the service does not come up");
        return Verdict(m_service, m_world.ledger);
    }
    const std::vector<std::string> known = m_world.CountAll();
    const long warmUp = std::min(m_options.amount / 4, 120L);
    Chaos(seconds(warmUp));
    const Vitals start = QuietVitals(m_service.Pid());
    const Vitals end = Chain(start, m_options.amount - warmUp);
    JudgeGrowth(m_service.Pid(), start, end, m_world.ledger);
    Compare(known, m_world.CountAll());
    StopWell(m_service, m_world.ledger);
    return Verdict(m_service, m_world.ledger);
}

}  // namespace
}  // namespace test

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::map<std::string, int (*)(const std::string&, const std::string&)> clients = {
        {"--victim", test::RunVictim},
        {"--slow", test::RunSlowReader},
        {"--greedy", test::RunGreedy}};
    if (words.size() == 3 && clients.count(words[0])) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // a soak that is killed leaves none behind
        return clients.at(words[0])(words[1], words[2]);
    }
    return test::RunWith(words, {"seconds", 1800, 4},
                         [](const test::RunOptions& options) { return test::Soak(options).Run(); });
}
