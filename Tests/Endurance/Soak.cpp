// Five clients with random commands on real media files, while sticks come and go, clients and
// metadata helpers are killed, and others read nothing of what they asked for. Afterwards the
// service must be as small as before, and know what it knew.
#include <fcntl.h>
#include <json/json.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>

#include "Endurance/SoakClient.h"
#include "Endurance/Support/ServiceProcess.h"
#include "Endurance/Support/Sticks.h"
#include "Endurance/Support/Vitals.h"

namespace endurance {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kClients = 5;
constexpr long kLooks = 6;  // at the quiet service, after the warm-up's
// GLib keeps up to two idle threads of its pools, and makes them when it likes.
constexpr long kThreadSlack = 2;
constexpr long kDescriptorSlack = 0;
// What the heap does not give back for its pieces, whatever the length of the run: a slow
// reader's 64 MiB pass through it every few seconds.
constexpr long kMemorySlackKiB = 16 * 1024;

struct Words {
    long seconds = 1800;
    unsigned long seed = std::random_device()();
    std::string samples = "soak-samples";
};

struct Counts {
    std::vector<std::string> lines;  // "stick kind count"
};

class Soak {
public:
    explicit Soak(const Words& words);
    int Run();

private:
    ServiceOptions Options();
    void MakeSticks();
    bool LearnWorld();
    std::vector<std::string> CountAll();
    std::vector<std::string> CountStorage(test::DBusClient& client, int handle,
                                          const std::string& id, const std::string& path);
    void Chaos(seconds length);
    Vitals Chain(const Vitals& start, long length);
    Vitals QuietVitals();
    void Report(const Vitals& start, const Vitals& end);
    void Judge(const char* what, long start, long end, long slack);

    // Bodies of the threads that make trouble, until m_stop.
    void PlugAndUnplug(unsigned long seed);
    void ChangeFiles(unsigned long seed);
    void KillHelpers(unsigned long seed);
    void KillClients(unsigned long seed);
    void Pause(std::mt19937_64& random, int least, int most);
    void RunAndKill(const std::vector<std::string>& words, std::mt19937_64& random);

    const Words m_words;
    ScratchFolder m_scratch;
    Sticks m_sticks;
    std::vector<std::string> m_names = {"ALL", "PHOTOS", "MIXED", "OTHER"};
    Ledger m_ledger;
    std::atomic<bool> m_stop{false};
    unsigned long m_stretch = 0;
    SoakWorld m_world;
    ServiceProcess m_service;
};

Soak::Soak(const Words& words) : m_words(words), m_sticks(m_scratch.Path()), m_service(Options()) {
    m_world.socket = m_service.Socket();
    m_world.ledger = &m_ledger;
    m_world.stop = &m_stop;
}

ServiceOptions Soak::Options() {
    MakeSticks();
    ServiceOptions options;
    options.folder = m_scratch.Path();
    options.usbRoot = m_sticks.Root();
    options.logLevel = "error";
    return options;
}

void Soak::MakeSticks() {
    const fs::path samples = m_words.samples;
    fs::create_directories(samples);
    MakeSamples("--small", samples / "small");
    MakeSamples("--photos", samples / "photos", "1500");
    MakeSamples("--large", samples / "large", "300");
    m_sticks.Add("ALL", samples / "small");
    m_sticks.Add("PHOTOS", samples / "photos");
    m_sticks.Add("MIXED", samples / "large");
    m_sticks.Add("OTHER", samples / "large");
    m_sticks.AddCamera("CAMERA");
}

// ---- what the service knows -------------------------------------------------------------------

std::string ClientPath(const fs::path& root, const std::string& path) {
    const std::string prefix = root.string();
    return prefix.substr(0, prefix.size() - strlen("/opt/storage/usb")) + "$USB_DIR" +
           path.substr(prefix.size());
}

bool Soak::LearnWorld() {
    const auto client = m_service.NewClient();
    const int handle = client->Open();
    if (client->Execute(handle, "Connect").value != "1") return false;
    Json::Value root;
    if (!Json::Reader().parse(client->Execute(handle, "GetStorages").value, root)) return false;
    for (const Json::Value& storage : root["storages"])
        if (!storage["id"].asString().empty()) m_world.storages.push_back(storage["id"].asString());
    for (const auto& entry : fs::recursive_directory_iterator(m_sticks.Root())) {
        const std::string path = ClientPath(m_sticks.Root(), entry.path().string());
        if (!g_utf8_validate(path.c_str(), -1, nullptr)) continue;
        if (entry.is_directory()) m_world.folders.push_back(path);
        // What a scan lists by itself: the counts are compared at the end. The other stick has
        // folders and names that it leaves out.
        const std::string ending = entry.path().extension().string();
        if (entry.is_regular_file() && (ending == ".jpg" || ending == ".mp3") &&
            path.find("/ALL/") == std::string::npos)
            m_world.files.push_back(path);
    }
    return m_world.storages.size() == m_names.size() && !m_world.files.empty();
}

std::vector<std::string> Soak::CountStorage(test::DBusClient& client, int handle,
                                            const std::string& id, const std::string& path) {
    std::vector<std::string> lines;
    for (const char* kind : {"photo", "music", "video"}) {
        client.Execute(handle, "Query", id, kind, "", "true");
        const auto event = client.Wait("QUERY_COMPLETED", seconds(100));
        lines.push_back(path + " " + kind + " " + (event ? event->payload : "no answer"));
    }
    return lines;
}

// One line a storage and kind, when the scans are over.
std::vector<std::string> Soak::CountAll() {
    std::vector<std::string> lines;
    const auto client = m_service.NewClient();
    const int handle = client->Open();
    client->Execute(handle, "Connect");
    Json::Value root;
    Json::Reader().parse(client->Execute(handle, "GetStorages").value, root);
    for (const Json::Value& storage : root["storages"]) {
        if (storage["type"] != "msc") continue;
        for (auto& line : CountStorage(*client, handle, storage["id"].asString(),
                                       storage["mountPath"].asString()))
            lines.push_back(std::move(line));
    }
    return lines;
}

// ---- trouble ----------------------------------------------------------------------------------

void Soak::Pause(std::mt19937_64& random, int least, int most) {
    const int length = std::uniform_int_distribution<int>(least, most)(random);
    WaitUntil([this] { return m_stop.load(); }, milliseconds(length));
}

void Soak::PlugAndUnplug(unsigned long seed) {
    std::mt19937_64 random(seed);
    std::vector<std::string> entries = m_names;
    entries.push_back("CAMERA.usb");
    while (!m_stop) {
        const std::string& entry = entries[random() % entries.size()];
        m_sticks.PullOut(entry);
        Pause(random, 0, 3000);
        m_sticks.PlugIn(entry);
        m_ledger.Done("unplug and plug");
        Pause(random, 0, 6000);
    }
}

// On one stick, which the other thread may pull out meanwhile: whatever fails then, fails.
void Soak::ChangeFiles(unsigned long seed) {
    std::mt19937_64 random(seed);
    const fs::path stick = m_sticks.PathOf("OTHER");
    std::error_code ignored;
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(stick, ignored))
        if (entry.is_regular_file()) files.push_back(entry.path());
    const fs::path copy = stick / "copy.jpg";
    while (!m_stop && !files.empty()) {
        const fs::path& file = files[random() % files.size()];
        utimensat(AT_FDCWD, file.c_str(), nullptr, 0);
        fs::copy_file(file, copy, fs::copy_options::overwrite_existing, ignored);
        Pause(random, 0, 200);
        fs::rename(copy, stick / "renamed.jpg", ignored);
        Pause(random, 0, 200);
        fs::remove(stick / "renamed.jpg", ignored);
        m_ledger.Done("files changed");
    }
}

void Soak::KillHelpers(unsigned long seed) {
    std::mt19937_64 random(seed);
    while (!m_stop) {
        // Children of the service, which is a child of this process.
        const std::vector<pid_t> helpers = ChildrenOf(m_service.Pid());
        if (!helpers.empty() && kill(helpers[random() % helpers.size()], SIGKILL) == 0)
            m_ledger.Done("helper killed");
        Pause(random, 50, 1500);
    }
}

void Soak::RunAndKill(const std::vector<std::string>& words, std::mt19937_64& random) {
    std::vector<std::string> copies = words;
    std::vector<char*> arguments;
    for (auto& word : copies) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execv("/proc/self/exe", arguments.data());
        _exit(127);
    }
    if (child < 0) return m_ledger.Wrong("cannot fork");
    Pause(random, 50, 4000);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

void Soak::KillClients(unsigned long seed) {
    std::mt19937_64 random(seed);
    while (!m_stop) {
        if (random() % 2) {
            RunAndKill({"soak", "--victim", m_world.socket, std::to_string(random())}, random);
            m_ledger.Done("client killed");
        } else {
            RunAndKill({"soak", "--slow", m_world.socket,
                        m_world.storages[random() % m_world.storages.size()]},
                       random);
            m_ledger.Done("slow reader killed");
        }
        Pause(random, 0, 2000);
    }
}

void Soak::Chaos(seconds length) {
    m_stop = false;
    std::mt19937_64 seeds(m_words.seed + ++m_stretch);
    std::vector<std::thread> threads;
    for (int i = 0; i < kClients; ++i)
        threads.emplace_back([this, seed = seeds()] { SoakClient(m_world, seed).Run(); });
    threads.emplace_back(&Soak::PlugAndUnplug, this, seeds());
    threads.emplace_back(&Soak::ChangeFiles, this, seeds());
    threads.emplace_back(&Soak::KillHelpers, this, seeds());
    threads.emplace_back(&Soak::KillClients, this, seeds());
    if (WaitUntil([this] { return !m_service.IsRunning(); }, length))
        m_ledger.Wrong("the service ended by itself");
    m_stop = true;
    for (auto& thread : threads) thread.join();
    // What was left where a stick was pulled out between two steps.
    for (const char* name : {"copy.jpg", "renamed.jpg"})
        fs::remove(m_sticks.PathOf("OTHER") / name);
}

// Some stretches with a look at the quiet service after each, so that a slow growth and a level
// that swings can be told apart.
Vitals Soak::Chain(const Vitals& start, long length) {
    const long looks = std::clamp(length / 60, 1L, kLooks);
    std::printf("memory of its own, KiB, after each stretch: %ld", start.privateKiB);
    Vitals last = start;
    for (long i = 0; i < looks; ++i) {
        Chaos(seconds(length / looks));
        last = QuietVitals();
        std::printf(" %ld", last.privateKiB);
        std::fflush(stdout);
    }
    std::printf("\n");
    return last;
}

// ---- judgement --------------------------------------------------------------------------------

bool IsLike(const Vitals& a, const Vitals& b) {
    return a.threads == b.threads && a.descriptors == b.descriptors && a.children == b.children;
}

// When nobody is connected and nothing has changed for some seconds.
Vitals Soak::QuietVitals() {
    Vitals last = ReadVitals(m_service.Pid());
    auto since = Clock::now();
    WaitUntil(
        [&] {
            const Vitals now = ReadVitals(m_service.Pid());
            if (!IsLike(last, now)) since = Clock::now();
            last = now;
            return Clock::now() - since > seconds(3) && last.children == 0;
        },
        seconds(60));
    return last;
}

void Soak::Judge(const char* what, long start, long end, long slack) {
    std::printf("%-28s %12ld %12ld   may grow by %ld\n", what, start, end, slack);
    if (end > start + slack) m_ledger.Wrong(std::string(what) + " has grown");
}

void Soak::Report(const Vitals& start, const Vitals& end) {
    std::printf("\n%-28s %12s %12s\n", "service, when quiet", "start", "end");
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    std::printf("(memory is not judged here: a sanitizer keeps what is freed)\n");
    const long memorySlack = 1L << 30;
#else
    const long memorySlack = kMemorySlackKiB;
#endif
    Judge("memory of its own, KiB", start.privateKiB, end.privateKiB, memorySlack);
    std::printf("%-28s %12ld %12ld\n", "resident, KiB", start.residentKiB, end.residentKiB);
    Judge("threads", start.threads, end.threads, kThreadSlack);
    Judge("descriptors", start.descriptors, end.descriptors, kDescriptorSlack);
    Judge("child processes", start.children, end.children, 0);
    if (end.descriptors > start.descriptors + kDescriptorSlack)
        std::printf("descriptors:\n%s", DescriptorsOf(m_service.Pid()).c_str());
    if (end.threads > start.threads + kThreadSlack)
        std::printf("threads:\n%s", ThreadsOf(m_service.Pid()).c_str());
}

int Soak::Run() {
    std::printf("soak: %ld seconds, seed %lu\n", m_words.seconds, m_words.seed);
    std::fflush(stdout);
    if (!m_service.WaitUntilServing() || !LearnWorld()) {
        m_ledger.Wrong("the service does not come up: " + m_service.Log());
        return 1;
    }
    const std::vector<std::string> known = CountAll();
    const long warmUp = std::min(m_words.seconds / 4, 120L);
    Chaos(seconds(warmUp));
    const Vitals start = QuietVitals();
    const Vitals end = Chain(start, m_words.seconds - warmUp);
    const std::vector<std::string> knownNow = CountAll();
    for (size_t i = 0; i < known.size() || i < knownNow.size(); ++i) {
        const std::string was = i < known.size() ? known[i] : "nothing";
        const std::string now = i < knownNow.size() ? knownNow[i] : "nothing";
        if (was != now) m_ledger.Wrong("counted " + was + " at the start, " + now + " at the end");
    }
    const auto status = m_service.Stop();
    if (!status) m_ledger.Wrong("the service does not end");
    if (status && *status != 0) m_ledger.Wrong("the service ended with " + std::to_string(*status));
    Report(start, end);
    m_ledger.Print();
    if (m_ledger.WrongTotal() > 0) std::printf("log:\n%s\n", m_service.Log().c_str());
    std::printf("%ld operations: %s\n", m_ledger.Total(),
                m_ledger.WrongTotal() ? "FAILED" : "passed");
    return m_ledger.WrongTotal() ? 1 : 0;
}

int Usage() {
    std::fprintf(stderr, "usage: soak [--seconds N] [--seed N] [--samples DIR]\n");
    return 2;
}

int Main(const std::vector<std::string>& words) {
    if (words.size() == 3 && words[0] == "--victim")
        return RunVictim(words[1], std::strtoul(words[2].c_str(), nullptr, 10));
    if (words.size() == 3 && words[0] == "--slow") return RunSlowReader(words[1], words[2]);
    Words given;
    for (size_t i = 0; i < words.size(); i += 2) {
        if (i + 1 == words.size()) return Usage();
        if (words[i] == "--seconds")
            given.seconds = std::atol(words[i + 1].c_str());
        else if (words[i] == "--seed")
            given.seed = std::strtoul(words[i + 1].c_str(), nullptr, 10);
        else if (words[i] == "--samples")
            given.samples = words[i + 1];
        else
            return Usage();
    }
    if (given.seconds < 4) return Usage();
    return Soak(given).Run();
}

}  // namespace
}  // namespace endurance

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    try {
        return endurance::Main(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}
