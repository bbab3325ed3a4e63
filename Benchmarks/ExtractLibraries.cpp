// What reading metadata costs: each reader on a file of each format, and the helper processes
// against the bare libraries in one process over the same files.
//   ExtractLibraries SMALL-LIBRARY LARGE-LIBRARY [--benchmark_...]
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "MediaContent/Extract/Extractor.h"
#include "MediaContent/Extract/MediaTypes.h"
#include "MediaContent/Extract/ReadMetadata.h"
#include "MediaContent/Extract/UniqueFd.h"

namespace {

using namespace platform;

constexpr int CORES = 2;

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

void AllBare(benchmark::State& state, const std::vector<File>& files) {
    for (auto _ : state) {
        for (const File& file : files) {
            if (!ReadBare(file)) state.SkipWithError("not read");
        }
    }
}

ExtractorOptions Options() {
    ExtractorOptions options;
    options.helperPath = EXTRACT_HELPER;
    options.workers = CORES;
    return options;
}

constexpr size_t AT_ONCE = 32;

// Some files from `first` on; returns how many failed.
size_t ReadSome(ExtractorPool& pool, const std::vector<File>& files, size_t first,
                const std::atomic<bool>& cancel) {
    std::vector<UniqueFd> open;
    std::vector<ExtractFile> wanted;
    for (size_t i = first; i < std::min(first + AT_ONCE, files.size()); ++i) {
        open.push_back(Open(files[i]));
        wanted.push_back({open.back().Get(), files[i].kind, files[i].mime});
    }
    const std::vector<ExtractResult> results = pool.Extract(wanted, cancel);
    return static_cast<size_t>(std::count_if(
        results.begin(), results.end(),
        [](const ExtractResult& result) { return result.status != ExtractStatus::OK; }));
}

// As many callers as helpers, each with every second handful. The start of the helpers counts.
void AllThroughHelpers(benchmark::State& state, const std::vector<File>& files) {
    const std::atomic<bool> cancel{false};
    std::atomic<size_t> failed{0};
    for (auto _ : state) {
        ExtractorPool pool(Options());
        const auto work = [&](size_t first) {
            for (size_t i = first * AT_ONCE; i < files.size(); i += CORES * AT_ONCE)
                failed += ReadSome(pool, files, i, cancel);
        };
        std::thread other(work, 1);
        work(0);
        other.join();
    }
    if (failed) state.SkipWithError("not all were read");
}

// Keeps the median times, to print their ratio at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name == "median")
                m_medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
    }
    void PrintRatio() const {
        const auto bare = m_medians.find("all/bare");
        const auto pool = m_medians.find("all/helpers");
        if (bare == m_medians.end() || pool == m_medians.end()) return;
        std::printf("helpers (%d) against the bare libraries (one process): %.2f times\n", CORES,
                    pool->second / bare->second);
    }

private:
    std::map<std::string, double> m_medians;
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
    benchmark::RegisterBenchmark("all/bare", AllBare, large)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Repetitions(5);
    benchmark::RegisterBenchmark("all/helpers", AllThroughHelpers, large)
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
    reporter.PrintRatio();
}
