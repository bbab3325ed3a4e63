// Sticks and cameras below a USB root of one's own, which come and go by being renamed.
#ifndef TESTS_SERVICE_STICKS_H
#define TESTS_SERVICE_STICKS_H

#include <filesystem>
#include <string>

namespace test {

// Any thread, as far as one stick is one thread's.
class Sticks {
public:
    // Makes FOLDER/opt/storage/usb, and FOLDER/away for what is pulled out.
    explicit Sticks(const std::filesystem::path& folder);

    // A stick that holds copies of what is in `samples`; plugged in.
    std::filesystem::path Add(const std::string& name, const std::filesystem::path& samples = {});
    // A stick that holds what MakeSamples makes; plugged in.
    std::filesystem::path Make(const std::string& name, const std::string& kind, int count = 0);
    // A key file alone: a camera; plugged in.
    void AddCamera(const std::string& name);

    void PullOut(const std::string& entry);
    void PlugIn(const std::string& entry);

    const std::filesystem::path& Root() const { return m_root; }
    // As clients see it.
    std::string ClientRoot() const;
    std::filesystem::path PathOf(const std::string& name) const { return m_root / name; }

private:
    std::filesystem::path m_root;
    std::filesystem::path m_away;
};

// Makes DIR by the sample program with these words ("--photos DIR N"; no number for 0), unless it
// is there already. Throws std::runtime_error when it fails.
void MakeSamples(const std::string& kind, const std::filesystem::path& folder, int count = 0);

// A song of 10 GiB that is a header and a hole, a chunk of nothing every 8 bytes: it costs its
// reader the whole deadline.
void MakeHangingSong(const std::filesystem::path& file);

}  // namespace test

#endif
