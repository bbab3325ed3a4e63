#include "Service/Sticks.h"

#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <vector>

#include "Service/Program.h"

namespace test {

namespace fs = std::filesystem;

Sticks::Sticks(const fs::path& folder)
    : m_root(folder / "opt/storage/usb"), m_away(folder / "away") {
    fs::create_directories(m_root);
    fs::create_directories(m_away);
}

fs::path Sticks::Add(const std::string& name, const fs::path& samples) {
    const fs::path made = m_away / name;
    if (samples.empty())
        fs::create_directories(made);
    else
        fs::copy(samples, made, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    PlugIn(name);
    return PathOf(name);
}

fs::path Sticks::Make(const std::string& name, const std::string& kind, int count) {
    MakeSamples(kind, m_away / name, count);
    PlugIn(name);
    return PathOf(name);
}

void Sticks::AddCamera(const std::string& name) {
    std::ofstream(m_away / (name + ".usb"))
        << "[device]\nclass=6\nvendor=Sample\nproduct=Camera\nbus=1\naddress=7\n";
    PlugIn(name + ".usb");
}

std::string Sticks::ClientRoot() const {
    const std::string root = m_root;
    return root.substr(0, root.find("/opt/storage/usb")) + "$USB_DIR";
}

void Sticks::PullOut(const std::string& entry) {
    fs::rename(m_root / entry, m_away / entry);
}

void Sticks::PlugIn(const std::string& entry) {
    fs::rename(m_away / entry, m_root / entry);
}

// Several processes may come here at once: each makes its own, and the first one's stays.
void MakeSamples(const std::string& kind, const fs::path& folder, int count) {
    if (fs::exists(folder)) return;
    const fs::path part = folder.string() + "." + std::to_string(getpid());
    fs::create_directories(part);
    std::vector<std::string> words{SERVICE_SAMPLES, kind, part};
    if (count > 0) words.push_back(std::to_string(count));
    const Outcome made = RunProgram(words);
    if (made.status != 0) throw std::runtime_error("no samples: " + made.errors);
    std::error_code existsNow;
    fs::rename(part, folder, existsNow);
    if (existsNow) fs::remove_all(part);
}

void MakeHangingSong(const fs::path& file) {
    std::ofstream(file) << "RIFF\xff\xff\xff\x7fWAVE";
    fs::resize_file(file, 10ull << 30);
}

}  // namespace test
