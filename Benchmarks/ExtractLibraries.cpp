// What reading metadata costs: each reader on a file of each format; and all files of a library
// through the bare metadata libraries by path, through our readers in this process, and through
// two helper processes. "cpu" is the processor time of all processes, in seconds: it holds on a
// busy machine too, where times by the clock do not.
//   ExtractLibraries SMALL-LIBRARY LARGE-LIBRARY [--benchmark_...]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

#include <algorithm>
#include <cstdio>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "Process/UniqueFd.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

using namespace platform;

constexpr int kCores = 2;

struct File {
    std::string path;
    media_content_type_e kind;
    const char* mime;
};

std::vector<File> MediaFilesBelow(const std::string& root) {
    std::vector<File> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        File file = {entry.path().string(), MEDIA_CONTENT_TYPE_OTHERS, nullptr};
        if (entry.is_regular_file() && LookUpMediaType(file.path, file.kind, file.mime))
            files.push_back(std::move(file));
    }
    std::sort(files.begin(), files.end(),
              [](const File& a, const File& b) { return a.path < b.path; });
    return files;
}

UniqueFd Open(const File& file) {
    return UniqueFd(open(file.path.c_str(), O_RDONLY | O_CLOEXEC));
}

uint64_t SizeOf(int fd) {
    struct stat status = {};
    fstat(fd, &status);
    return static_cast<uint64_t>(status.st_size);
}

bool ReadBare(const File& file) {
    const UniqueFd fd = Open(file);
    FileSource source(fd.Get(), SizeOf(fd.Get()));
    Metadata metadata;
    return ReadMetadata(source, file.kind, file.mime, metadata);
}

void OneFile(benchmark::State& state, const File& file) {
    for (auto _ : state) {
        if (!ReadBare(file)) state.SkipWithError("not read");
    }
}

// A song through libavformat, to compare TagLib with.
void OneSongAsContainer(benchmark::State& state, const File& file) {
    for (auto _ : state) {
        const UniqueFd fd = Open(file);
        FileSource source(fd.Get(), SizeOf(fd.Get()));
        Metadata metadata;
        if (!ReadContainer(source, file.mime, metadata)) state.SkipWithError("not read");
    }
}

double ProcessorSeconds() {
    double seconds = 0.0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage = {};
        getrusage(who, &usage);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            seconds += static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    }
    return seconds;
}

// Puts the processor time of all iterations into the counter "cpu".
class ProcessorTime {
public:
    explicit ProcessorTime(benchmark::State& state) : m_state(state), m_start(ProcessorSeconds()) {}
    ~ProcessorTime() {
        m_state.counters["cpu"] =
            benchmark::Counter(ProcessorSeconds() - m_start, benchmark::Counter::kAvgIterations);
    }
    ProcessorTime(const ProcessorTime&) = delete;
    ProcessorTime& operator=(const ProcessorTime&) = delete;

private:
    benchmark::State& m_state;
    const double m_start;
};

// As a program would use each library that knows nothing of ours: by the file's name.
bool ReadByLibrary(const File& file) {
    if (file.kind == MEDIA_CONTENT_TYPE_IMAGE) {
        const Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(file.path);
        image->readMetadata();
        return image->pixelWidth() > 0;
    }
    if (file.kind == MEDIA_CONTENT_TYPE_MUSIC) {
        const TagLib::FileRef song(file.path.c_str());
        return !song.isNull() && song.file()->properties().size() > 0;
    }
    AVFormatContext* film = nullptr;
    if (avformat_open_input(&film, file.path.c_str(), nullptr, nullptr) < 0) return false;
    const bool read = film->nb_streams > 0;
    avformat_close_input(&film);
    return read;
}

void AllOneByOne(benchmark::State& state, bool (*read)(const File&),
                 const std::vector<File>& files) {
    const ProcessorTime time(state);
    for (auto _ : state) {
        for (const File& file : files) {
            if (!read(file)) state.SkipWithError("not read");
        }
    }
}

ExtractorOptions Options() {
    ExtractorOptions options;
    options.helperPath = EXTRACT_HELPER;
    options.idleHelpers = kCores;
    return options;
}

// Some files from `first` on; returns how many failed.
size_t ReadSome(ExtractorPool& pool, const std::vector<File>& files, size_t first, size_t count,
                const std::atomic<bool>& cancel) {
    std::vector<UniqueFd> open;
    std::vector<ExtractFile> wanted;
    for (size_t i = first; i < std::min(first + count, files.size()); ++i) {
        open.push_back(Open(files[i]));
        wanted.push_back({open.back().Get(), files[i].kind, files[i].mime});
    }
    const std::vector<ExtractResult> results = pool.Extract(wanted, cancel);
    return static_cast<size_t>(std::count_if(
        results.begin(), results.end(),
        [](const ExtractResult& result) { return result.status != ExtractStatus::Ok; }));
}

// As many callers as helpers, each with every second handful. The start of the helpers counts.
void AllThroughHelpers(benchmark::State& state, const std::vector<File>& files, size_t atOnce) {
    const ProcessorTime time(state);
    const std::atomic<bool> cancel{false};
    std::atomic<size_t> failed{0};
    for (auto _ : state) {
        ExtractorPool pool(Options());
        const auto work = [&](size_t first) {
            for (size_t i = first * atOnce; i < files.size(); i += kCores * atOnce)
                failed += ReadSome(pool, files, i, atOnce, cancel);
        };
        std::thread other(work, 1);
        work(0);
        other.join();
    }
    if (failed) state.SkipWithError("not all were read");
}

// Keeps the medians, to print their ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name == "median")
                m_medians[run.run_name.function_name] = {run.GetAdjustedRealTime(),
                                                         run.counters.at("cpu").value};
        }
    }
    void PrintRatios() const {
        for (const char* other : {"all/libraries", "all/readers"}) {
            const auto one = m_medians.find(other);
            const auto pool = m_medians.find("all/helpers");
            if (one == m_medians.end() || pool == m_medians.end()) continue;
            std::printf(
                "%d helpers against %s in one process: %.2f times by the clock, %.2f in "
                "processor time\n",
                kCores, other, pool->second.clock / one->second.clock,
                pool->second.cpu / one->second.cpu);
        }
    }

private:
    struct Median {
        double clock;
        double cpu;
    };
    std::map<std::string, Median> m_medians;
};

void Register(const std::vector<File>& small, const std::vector<File>& large) {
    for (const File& file : small) {
        if (file.path.find("/Broken/") != std::string::npos ||
            file.path.find("/Odd names/") != std::string::npos || !ReadBare(file))
            continue;
        const std::string name = std::filesystem::path(file.path).filename();
        benchmark::RegisterBenchmark(("reader/" + name).c_str(), OneFile, file)
            ->Unit(benchmark::kMicrosecond);
        if (file.kind == MEDIA_CONTENT_TYPE_MUSIC)
            benchmark::RegisterBenchmark(("as container/" + name).c_str(), OneSongAsContainer, file)
                ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RegisterBenchmark("all/libraries", AllOneByOne, ReadByLibrary, large)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Repetitions(5);
    benchmark::RegisterBenchmark("all/readers", AllOneByOne, ReadBare, large)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Repetitions(5);
    benchmark::RegisterBenchmark("all/helpers one by one", AllThroughHelpers, large, 1)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Repetitions(5);
    benchmark::RegisterBenchmark("all/helpers", AllThroughHelpers, large, 32)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Repetitions(5);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 3) {
        std::fprintf(stderr,
                     "usage: ExtractLibraries SMALL-LIBRARY LARGE-LIBRARY\n"
                     "make-sample-media --small and --large make them\n");
        return 2;
    }
    InitMetadataReaders();
    Register(MediaFilesBelow(argv[1]), MediaFilesBelow(argv[2]));
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
}
