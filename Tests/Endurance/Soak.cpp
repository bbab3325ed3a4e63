// Five clients with random commands on real media files, while sticks come and go, one of them
// hostile, clients and metadata helpers are killed, others read nothing of what they asked for,
// and others ask for as much as they can. Afterwards the service must be as small as before, and
// know what it knew.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <list>
#include <map>
#include <thread>

#include "Endurance/LongRun.h"
#include "Endurance/SoakClient.h"
#include "Service/MediaClient.h"
#include "Service/Program.h"
#include "Service/Sticks.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

constexpr int kClients = 5;
constexpr int kBadClients = 2;  // of one kind, at a time

// The sticks of the soak, and what the service knows of them.
class SoakWorld : public Known {
public:
    // Four sticks of real media files, one of hostile ones and a camera, plugged in.
    SoakWorld(const fs::path& folder, const fs::path& samples);

    // Asks the service at `socket`; false when it does not tell of every stick.
    bool Learn(const std::string& atSocket);
    // One line a storage and kind, when the scans are over.
    Texts CountAll();

    Sticks sticks;
    const Texts names = {"ALL", "PHOTOS", "MIXED", "OTHER", "HOSTILE"};
};

SoakWorld::SoakWorld(const fs::path& folder, const fs::path& samples) : sticks(folder) {
    MakeSamples("--small", samples / "small");
    MakeSamples("--photos", samples / "photos", 1500);
    MakeSamples("--large", samples / "large", 300);
    sticks.Add("ALL", samples / "small");
    sticks.Add("PHOTOS", samples / "photos");
    sticks.Add("MIXED", samples / "large");
    sticks.Add("OTHER", samples / "large");
    sticks.Make("HOSTILE", "--hostile");
    for (const char* name : {"hanging1.wav", "hanging2.wav", "hanging3.wav"})
        MakeHangingSong(sticks.PathOf("HOSTILE") / name);
    sticks.AddCamera("CAMERA");
}

bool SoakWorld::Learn(const std::string& atSocket) {
    socket = atSocket;
    for (const Json::Value& storage : MediaClient(socket).Storages())
        if (!storage["id"].asString().empty()) storages.push_back(storage["id"].asString());
    const std::string root = sticks.Root();
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string below = entry.path().string().substr(root.size());
        const std::string path = sticks.ClientRoot() + below;
        if (below.rfind("/HOSTILE", 0) == 0 || !g_utf8_validate(path.c_str(), -1, nullptr))
            continue;
        if (entry.is_directory()) folders.push_back(path);
        // What a scan lists by itself: the counts are compared at the end. One stick has folders
        // and names that it leaves out.
        const std::string ending = entry.path().extension().string();
        if (entry.is_regular_file() && (ending == ".jpg" || ending == ".mp3") &&
            below.rfind("/ALL", 0) != 0)
            files.push_back(path);
    }
    return storages.size() == names.size() && !files.empty();
}

Texts SoakWorld::CountAll() {
    Texts lines;
    MediaClient client(socket);
    for (const Json::Value& storage : client.Storages()) {
        if (storage["type"] != "msc") continue;
        for (const char* kind : {"photo", "music", "video"}) {
            const std::string payload = client.QueryEvent(storage["id"].asString(), kind);
            if (payload.empty()) ledger.Wrong(std::string("nobody counts ") + kind);
            lines.push_back(storage["mountPath"].asString() + " " + kind + " " + payload);
        }
    }
    return lines;
}

// What happens around the service while the clients are at work: sticks come and go, files change,
// helpers and clients are killed, each on a thread of its own from here on until the world's stop
// is set. The end waits for the threads and removes what was left where a stick was pulled out
// between two steps.
class SoakTrouble {
public:
    SoakTrouble(SoakWorld& world, pid_t service, unsigned long seed)
        : m_world(world), m_service(service) {
        for (const auto& trouble : {&SoakTrouble::PlugAndUnplug, &SoakTrouble::ChangeFiles,
                                    &SoakTrouble::KillHelpers, &SoakTrouble::KillClients})
            m_threads.emplace_back(trouble, this, Random(seed++));
    }
    ~SoakTrouble() {
        for (auto& thread : m_threads) thread.join();
        for (const char* name : {"copy.jpg", "renamed.jpg"})
            fs::remove(m_world.sticks.PathOf("OTHER") / name);
    }
    SoakTrouble(const SoakTrouble&) = delete;
    SoakTrouble& operator=(const SoakTrouble&) = delete;

private:
    void PlugAndUnplug(Random random);
    void ChangeFiles(Random random);
    void KillHelpers(Random random);
    void KillClients(Random random);
    // Between so many milliseconds, or until stop is set.
    void Pause(Random& random, int least, int most) {
        const int length = std::uniform_int_distribution<int>(least, most)(random);
        Until([this] { return m_world.stop.load(); }, std::chrono::milliseconds(length));
    }

    SoakWorld& m_world;
    const pid_t m_service;
    std::vector<std::thread> m_threads;
};

void SoakTrouble::PlugAndUnplug(Random random) {
    Texts entries = m_world.names;
    entries.push_back("CAMERA.usb");
    while (!m_world.stop) {
        const std::string& entry = entries[random() % entries.size()];
        m_world.sticks.PullOut(entry);
        Pause(random, 0, 3000);
        m_world.sticks.PlugIn(entry);
        m_world.ledger.Done("unplug and plug");
        Pause(random, 0, 6000);
    }
}

// On one stick, which the other thread may pull out meanwhile: whatever fails then, fails.
void SoakTrouble::ChangeFiles(Random random) {
    const fs::path stick = m_world.sticks.PathOf("OTHER");
    std::error_code ignored;
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(stick, ignored))
        if (entry.is_regular_file()) files.push_back(entry.path());
    const fs::path copy = stick / "copy.jpg";
    while (!m_world.stop && !files.empty()) {
        const fs::path& file = files[random() % files.size()];
        utimensat(AT_FDCWD, file.c_str(), nullptr, 0);
        fs::copy_file(file, copy, fs::copy_options::overwrite_existing, ignored);
        Pause(random, 0, 200);
        fs::rename(copy, stick / "renamed.jpg", ignored);
        Pause(random, 0, 200);
        fs::remove(stick / "renamed.jpg", ignored);
        m_world.ledger.Done("files changed");
    }
}

void SoakTrouble::KillHelpers(Random random) {
    while (!m_world.stop) {
        // Children of the service, which is a child of this process.
        for (const pid_t helper : ChildrenOf(m_service))
            if (random() % 2 == 0 && kill(helper, SIGKILL) == 0)
                m_world.ledger.Done("helper killed");
        Pause(random, 50, 1500);
    }
}

void SoakTrouble::KillClients(Random random) {
    const Texts words{"--victim", "--slow", "--greedy"};
    while (!m_world.stop) {
        const std::string& word = words[random() % words.size()];
        const std::string& storage = m_world.storages[random() % m_world.storages.size()];
        {
            const Texts command{"/proc/self/exe", word, m_world.socket, storage};
            std::list<Program> clients;
            for (int i = 0; i < kBadClients; ++i) clients.emplace_back(command, "/dev/null");
            Pause(random, 50, 4000);
        }
        m_world.ledger.Done("killed " + word);
        Pause(random, 0, 2000);
    }
}

class Soak {
public:
    explicit Soak(const RunOptions& options);
    int Run();

private:
    ServiceOptions Options() const;
    void Chaos(seconds length);
    void Compare(const Texts& before, const Texts& after);

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
    Random seeds(m_options.seed + ++m_stretch);
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i)
        clients.emplace_back([this, seed = seeds()] { SoakClient(m_world, seed).Run(); });
    const SoakTrouble trouble(m_world, m_service.Pid(), seeds());
    if (Until([this] { return !m_service.IsRunning(); }, length))
        m_world.ledger.Wrong("the service ended by itself");
    m_world.stop = true;
    for (auto& client : clients) client.join();
}

void Soak::Compare(const Texts& before, const Texts& after) {
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
    const Texts known = m_world.CountAll();
    const long warmUp = std::min(m_options.amount / 4, 120L);
    Chaos(seconds(warmUp));
    const Vitals start = QuietVitals(m_service.Pid());
    Chaos(seconds(m_options.amount - warmUp));
    JudgeGrowth(start, QuietVitals(m_service.Pid()), m_world.ledger);
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
