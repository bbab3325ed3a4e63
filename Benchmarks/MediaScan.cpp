// A first scan against the metadata libraries run bare over the same files in one process, and a
// scan that finds nothing changed against a bare walk with stat.
//   MediaScan LIBRARY [rounds] [cold]
//   MediaScan LIBRARY ROUNDS beside OTHER
// LIBRARY is a folder of real media files, made for instance with "make-sample-media --camera".
// With "cold" (as root) the system's caches are dropped before each first reading. With "beside" a
// first scan alone is set against one while the storage OTHER, mounted a second before, is scanned.
#include <fcntl.h>
#include <ftw.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "Log/Log.h"
#include "MediaContent.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/MediaService.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct File {
    std::string path;
    media_content_type_e kind;
};

size_t used = 0;  // keeps what was read from being left out

double Seconds(const std::function<void()>& body) {
    const auto begin = Clock::now();
    body();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::vector<File> FilesBelow(const std::string& root) {
    std::vector<File> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        File file{entry.path().string(), MEDIA_CONTENT_TYPE_OTHERS};
        const char* mime = nullptr;
        if (entry.is_regular_file() && platform::LookUpMediaType(file.path, file.kind, mime))
            files.push_back(std::move(file));
    }
    return files;
}

void ReadPicture(const std::string& path) {
    try {
        const auto image = Exiv2::ImageFactory::open(path);
        image->readMetadata();
        used += static_cast<size_t>(image->pixelWidth()) + image->exifData().count();
    } catch (const Exiv2::Error&) {
        ++used;
    }
}

void ReadSong(const std::string& path) {
    const TagLib::FileRef file(path.c_str());
    if (file.isNull()) return;
    used += file.file()->properties().size();
    if (file.audioProperties())
        used += static_cast<size_t>(file.audioProperties()->lengthInMilliseconds());
}

void ReadFilm(const std::string& path) {
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) return;
    used += context->nb_streams;
    avformat_close_input(&context);
}

void ReadBare(const std::vector<File>& files) {
    for (const File& file : files) {
        if (file.kind == MEDIA_CONTENT_TYPE_IMAGE) ReadPicture(file.path);
        if (file.kind == MEDIA_CONTENT_TYPE_MUSIC) ReadSong(file.path);
        if (file.kind == MEDIA_CONTENT_TYPE_VIDEO) ReadFilm(file.path);
    }
}

// What any scan has to do: name every entry, and stat the files.
void WalkBare(const std::string& folder) {
    nftw(
        folder.c_str(),
        [](const char*, const struct stat* facts, int, FTW*) {
            used += static_cast<size_t>(facts->st_size);
            return 0;
        },
        64, FTW_PHYS);
}

bool cold = false;

void DropCaches() {
    if (!cold) return;
    sync();
    std::ofstream("/proc/sys/vm/drop_caches") << 3;
}

void WaitForScans() {
    while (!platform::CurrentScans().empty()) usleep(200);
}

// Their time counts when they have ended.
void WaitForHelpers() {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0) usleep(200);
}

double CpuSeconds() {
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        sum += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }
    return sum;
}

struct Round {
    double first = 0, bare = 0, again = 0, walk = 0;
    double firstCpu = 0, bareCpu = 0;  // all processes and threads
    int items = 0;
};

Round Measure(const std::string& library, const std::vector<File>& files) {
    char name[] = "/tmp/media-benchmark-XXXXXX";
    if (!mkdtemp(name)) exit(1);
    platform::ConfigureMediaService({std::string(name) + "/media.db", EXTRACT_HELPER});
    platform::MountedStorage storage;
    storage.uuid = "library";
    storage.mountPath = library;
    Round round;
    media_content_connect();
    DropCaches();
    const double cpu = CpuSeconds();
    round.first = Seconds([&] {
        platform::StorageMounted(storage);
        platform::StorageContentChanged(library, {});
        WaitForScans();
    });
    WaitForHelpers();
    round.firstCpu = CpuSeconds() - cpu;
    media_info_get_media_count_from_db(nullptr, &round.items);
    DropCaches();
    round.bare = Seconds([&] { ReadBare(files); });
    round.bareCpu = CpuSeconds() - cpu - round.firstCpu;
    round.again = Seconds([&] {
        platform::StorageContentChanged(library, {});
        WaitForScans();
    });
    round.walk = Seconds([&] { WalkBare(library); });
    platform::StorageUnmounted(library);
    media_content_disconnect();
    platform::ShutdownMediaService();
    fs::remove_all(name);
    return round;
}

bool IsScanned(const std::string& path) {
    for (const auto& scan : platform::CurrentScans())
        if (scan.mountPath == path) return false;
    return true;
}

void MountAt(const std::string& path) {
    platform::MountedStorage storage;
    storage.uuid = storage.mountPath = path;
    platform::StorageMounted(storage);
    platform::StorageContentChanged(path, {});
}

// Seconds for a first scan of the library, beside the other storage if there is one.
double FirstScan(const std::string& library, const std::string& other) {
    char name[] = "/tmp/media-benchmark-XXXXXX";
    if (!mkdtemp(name)) exit(1);
    platform::ConfigureMediaService({std::string(name) + "/media.db", EXTRACT_HELPER});
    media_content_connect();
    if (!other.empty()) {
        MountAt(other);
        sleep(1);
    }
    const double taken = Seconds([&] {
        MountAt(library);
        while (!IsScanned(library)) usleep(200);
    });
    if (!other.empty() && IsScanned(other)) std::puts("the other storage was scanned before");
    for (const std::string& path : {library, other}) platform::StorageUnmounted(path);
    media_content_disconnect();
    platform::ShutdownMediaService();
    fs::remove_all(name);
    return taken;
}

double Median(std::vector<Round> rounds, double Round::*member) {
    std::sort(rounds.begin(), rounds.end(),
              [&](const Round& a, const Round& b) { return a.*member < b.*member; });
    return rounds[rounds.size() / 2].*member;
}

long MeanKilobytes(const std::vector<File>& files) {
    uintmax_t sum = 0;
    for (const File& file : files) sum += fs::file_size(file.path);
    return std::lround(static_cast<double>(sum) / 1000 / static_cast<double>(files.size()));
}

void Print(const std::string& what, double ours, double other, double aim) {
    std::printf("%-66s %10.1f ms %10.1f ms  %6.2f  aim %.2f  %s\n", what.c_str(), ours * 1000,
                other * 1000, ours / other, aim, ours / other <= aim ? "met" : "NOT MET");
}

int CompareBeside(const std::string& library, const std::string& other, int rounds) {
    std::vector<Round> times;
    for (int i = 0; i < rounds; ++i) {
        Round round;
        round.bare = FirstScan(library, "");
        round.first = FirstScan(library, other);
        times.push_back(round);
    }
    Print("first scan beside " + fs::path(other).filename().string() + " against one alone",
          Median(times, &Round::first), Median(times, &Round::bare), 2.0);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: MediaScan LIBRARY [rounds] [cold | beside OTHER]\n");
        return 2;
    }
    platform::SetLogPriority(platform::LOG_ERROR);
    Exiv2::XmpParser::initialize();
    Exiv2::enableBMFF(true);
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    av_log_set_level(AV_LOG_QUIET);
    cold = argc > 3 && std::string(argv[3]) == "cold";
    const std::string library = fs::canonical(argv[1]);
    const std::vector<File> files = FilesBelow(library);
    ReadBare(files);  // everything is in the page cache from here on, unless it is dropped
    if (argc > 4 && std::string(argv[3]) == "beside")
        return CompareBeside(library, fs::canonical(argv[4]), atoi(argv[2]));
    std::vector<Round> rounds;
    for (int i = 0; i < (argc > 2 ? atoi(argv[2]) : 3); ++i)
        rounds.push_back(Measure(library, files));
    std::printf("%zu files, %d items, medians of %zu rounds (%zu)\n", files.size(), rounds[0].items,
                rounds.size(), used % 10);
    std::printf("processor time of the first scan %.2f s, of the bare libraries %.2f s\n",
                Median(rounds, &Round::firstCpu), Median(rounds, &Round::bareCpu));
    const std::string size =
        std::to_string(MeanKilobytes(files)) + " KB" + (cold ? ", cold cache" : "");
    Print("first scan against the libraries run bare, files of " + size,
          Median(rounds, &Round::first), Median(rounds, &Round::bare), 0.7);
    if (!cold)
        Print("unchanged scan against a walk with stat, files of " + size,
              Median(rounds, &Round::again), Median(rounds, &Round::walk), 2.0);
    return 0;
}
