#include "Endurance/SoakTrouble.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <iterator>

#include "Service/Program.h"
#include "Service/Vitals.h"

namespace test {

namespace fs = std::filesystem;

SoakTrouble::SoakTrouble(SoakWorld& world, pid_t service, unsigned long seed)
    : m_world(world), m_service(service) {
    for (const auto& trouble : {&SoakTrouble::PlugAndUnplug, &SoakTrouble::ChangeFiles,
                                &SoakTrouble::KillHelpers, &SoakTrouble::KillClients})
        m_threads.emplace_back(trouble, this, Random(seed++));
}

SoakTrouble::~SoakTrouble() {
    for (auto& thread : m_threads) thread.join();
    for (const char* name : {"copy.jpg", "renamed.jpg"})
        fs::remove(m_world.sticks.PathOf("OTHER") / name);
}

void SoakTrouble::Pause(Random& random, int least, int most) {
    const int length = std::uniform_int_distribution<int>(least, most)(random);
    Until([this] { return m_world.stop.load(); }, std::chrono::milliseconds(length));
}

void SoakTrouble::PlugAndUnplug(Random random) {
    std::vector<std::string> entries = m_world.names;
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
        const std::vector<pid_t> helpers = ChildrenOf(m_service);
        if (!helpers.empty() && kill(helpers[random() % helpers.size()], SIGKILL) == 0)
            m_world.ledger.Done("helper killed");
        Pause(random, 50, 1500);
    }
}

void SoakTrouble::KillClients(Random random) {
    struct Kind {
        const char* word;
        const char* killed;
    };
    constexpr Kind kKinds[] = {{"--victim", "client killed"},
                               {"--slow", "slow reader killed"},
                               {"--greedy", "greedy client killed"}};
    while (!m_world.stop) {
        const Kind& kind = kKinds[random() % std::size(kKinds)];
        const std::string& storage = m_world.storages[random() % m_world.storages.size()];
        {
            const Program client({"/proc/self/exe", kind.word, m_world.socket, storage},
                                 "/dev/null");
            Pause(random, 50, 4000);
        }
        m_world.ledger.Done(kind.killed);
        Pause(random, 0, 2000);
    }
}

}  // namespace test
