#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "Encoders.h"
#include "Files.h"
#include "Libraries.h"
#include "MediaContent/Extract/MediaTypes.h"

namespace samples {
namespace {

constexpr off_t kSparseSize = 10ll * 1024 * 1024 * 1024;

// Reports what this file system or user does not allow, and continues.
void Note(const std::string& path, bool made) {
    if (!made) std::fprintf(stderr, "left out: %s: %s\n", path.c_str(), std::strerror(errno));
}

std::string Extension(const std::string& path) {
    return path.substr(path.rfind('.'));
}

// Every length up to what a reader reads first.
void CutAtEveryLength(const std::string& dir, const std::string& from, size_t header) {
    const std::string bytes = ReadFile(from);
    for (size_t length = 0; length < std::min(header, bytes.size()); ++length)
        WriteFile(dir + "/cut-" + std::to_string(length) + Extension(from),
                  bytes.substr(0, length));
}

void MakeRandom(const std::string& dir) {
    uint32_t seed = 100;
    for (const auto& type : platform::AllMediaTypes()) {
        const std::string name = dir + "/random." + type.extension;
        WriteFile(name, RandomBytes(seed, 1000 + seed * 7));
        ++seed;
    }
}

// No byte of it is allocated on disk.
void MakeSparse(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    Note(path, fd >= 0 && ftruncate(fd, kSparseSize) == 0);
    if (fd >= 0) close(fd);
}

void MakeSpecial(const std::string& dir) {
    const auto link = [&dir](const char* target, const char* name) {
        Note(dir + name, symlink(target, (dir + name).c_str()) == 0);
    };
    Note(dir + "/fifo.jpg", mkfifo((dir + "/fifo.jpg").c_str(), 0644) == 0);
    Note(dir + "/device.jpg",
         mknod((dir + "/device.jpg").c_str(), S_IFCHR | 0644, makedev(1, 5)) == 0);
    link("loop-b.jpg", "/loop-a.jpg");
    link("loop-a.jpg", "/loop-b.jpg");
    link("..", "/loop-folder");
    link("/etc/passwd", "/outside.jpg");
    link("nowhere", "/dangling.jpg");
}

}  // namespace

void MakeOddNames(const std::string& folder, const std::string& file) {
    MakeFolders(folder);
    const std::string bytes = ReadFile(file);
    const std::string suffix = Extension(file);
    const std::vector<std::string> names = {
        "Grüße aus Köln",     "日本語",
        "two  blanks ",       "quote\"s and 'ticks'",
        "back\\slash",        "new\nline",
        "tab\tbed",           "percent %s %n",
        "$USB_DIR",           "not UTF-8 \xff\xfe\xe9",
        "cut UTF-8 \xe2\x82", "-dash",
        "semi;colon&amp",     std::string(255 - suffix.size(), 'x')};
    for (const std::string& name : names) {
        try {
            WriteFile(folder + "/" + name + suffix, bytes);
        } catch (const std::runtime_error& error) {
            std::fprintf(stderr, "left out: %s\n", error.what());
        }
    }
    WriteFile(folder + "/UPPER.JPG", bytes);
}

void MakeHostileLibrary(const std::string& root) {
    for (const char* folder : {"/cut", "/random", "/special", "/names"}) MakeFolders(root + folder);
    const std::string jpg = root + "/good-a.jpg", mp3 = root + "/cut/good-b.mp3",
                      mp4 = root + "/random/good-c.mp4", png = root + "/special/good-d.png";
    const int leftOut = Encode({
        Ffmpeg(jpg, "testsrc2=size=64x48", "", {"-frames:v", "1"}, {}),
        Ffmpeg(mp3, "", "sine=duration=0.3", {"-c:a", "libmp3lame"}, {"title=Good"}),
        Ffmpeg(mp4, "testsrc2=size=64x48:duration=0.2", "", {"-c:v", "libx264"}, {"title=Good"}),
        Ffmpeg(png, "testsrc2=size=64x48", "", {"-frames:v", "1"}, {}),
    });
    if (leftOut) throw std::runtime_error("encoders are missing");
    CutAtEveryLength(root + "/cut", jpg, 700);
    CutAtEveryLength(root + "/cut", mp3, 300);
    CutAtEveryLength(root + "/cut", mp4, 300);
    CutAtEveryLength(root + "/cut", png, 100);
    MakeRandom(root + "/random");
    for (const char* name : {"/sparse.mp4", "/sparse.mp3", "/sparse.tiff", "/sparse.ts"})
        MakeSparse(root + "/special" + name);
    MakeSpecial(root + "/special");
    MakeOddNames(root + "/names", jpg);
}

}  // namespace samples
