// Counts and pages of a database of 1,000,000 items against one of 1,000, and against plain SQLite.
//   MediaDatabase [--items=N] [--benchmark_...]
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "CJsonHelper.h"
#include "Log/Log.h"
#include "MediaContent.h"
#include "MediaContent/MediaService.h"
#include "MediaContent/Store.h"
#include "MediaContent/Writer.h"
#include "MediaRatios.h"

namespace {

using namespace platform;
using media_benchmark::PrintRatio;
using media_benchmark::Times;

constexpr int kPage = 1000;
constexpr int kPerFolder = 500;

std::string folder;
std::string bigStorage, smallStorage;

Change MakeChange(int number) {
    Change change;
    change.folder = "folder" + std::to_string(number / kPerFolder);
    change.name = "IMG_" + std::to_string(number) + ".JPG";
    change.type = MEDIA_CONTENT_TYPE_IMAGE;
    change.mime = "image/jpeg";
    change.facts = {1000 + number, 1600000000 + number, 0, number + 1};
    change.state = ItemState::Read;
    change.metadata.width = 4000;
    change.metadata.height = 3000;
    change.metadata.description = "A picture of something, number " + std::to_string(number);
    return change;
}

void Fill(Store& store, const std::string& uuid, int items) {
    const std::string mount = folder + '/' + uuid;
    std::filesystem::create_directories(mount);
    // The storage is recorded as it will be when it is mounted; the id is corrected then.
    const int64_t storage = store.Write().RecordStorage("?" + uuid, "uuid:" + uuid, mount, 0);
    std::vector<Change> batch;
    for (int number = 0; number < items; ++number) {
        batch.push_back(MakeChange(number));
        if (batch.size() < 500 && number + 1 < items) continue;
        store.Write().Apply(storage, batch, 1700000000 + number / 100000);
        batch.clear();
    }
    store.Write().StorageWent(storage, time(nullptr));
    store.Write().Checkpoint();
}

// An empty folder that is no mount point: what is known of the storage is kept.
std::string Mount(const std::string& uuid) {
    MountedStorage storage;
    storage.uuid = uuid;
    storage.mountPath = folder + '/' + uuid;
    StorageMounted(storage);
    while (!CurrentScans().empty()) usleep(1000);
    std::pair<std::string, std::string> search(storage.mountPath, "");
    media_storage_foreach_storage_from_db(
        nullptr,
        [](media_storage_h handle, void* data) {
            auto& wanted = *static_cast<std::pair<std::string, std::string>*>(data);
            char *path = nullptr, *id = nullptr;
            media_storage_get_path(handle, &path);
            media_storage_get_storage_id(handle, &id);
            if (wanted.first == path) wanted.second = id;
            free(path);
            free(id);
            return true;
        },
        &search);
    return search.second;
}

media_filter_h Photos(const std::string& storage) {
    media_filter_h filter = nullptr;
    media_filter_create(&filter);
    media_filter_set_storage(filter, storage.c_str());
    media_filter_set_condition(filter, "MEDIA_TYPE=0", MEDIA_CONTENT_COLLATE_DEFAULT);
    media_filter_set_order(filter, MEDIA_CONTENT_ORDER_DESC, "MEDIA_ADDED_TIME",
                           MEDIA_CONTENT_COLLATE_DEFAULT);
    return filter;
}

void Count(benchmark::State& state, const std::string& storage) {
    const media_filter_h filter = Photos(storage);
    int count = 0;
    for (auto _ : state) {
        if (media_info_get_media_count_from_db(filter, &count) != 0) state.SkipWithError("count");
        benchmark::DoNotOptimize(count);
    }
    media_filter_destroy(filter);
    state.counters["items"] = count;
}

// Reads what a page shows of each item.
bool Use(media_info_h media, void* sum) {
    char *id = nullptr, *path = nullptr, *title = nullptr;
    unsigned long long size = 0;
    media_info_get_media_id(media, &id);
    media_info_get_file_path(media, &path);
    media_info_get_title(media, &title);
    media_info_get_size(media, &size);
    *static_cast<size_t*>(sum) += strlen(id) + strlen(path) + strlen(title) + size;
    free(id);
    free(path);
    free(title);
    return true;
}

void Page(benchmark::State& state, int offset) {
    const media_filter_h filter = Photos(bigStorage);
    media_filter_set_offset(filter, offset, kPage);
    size_t sum = 0;
    media_info_foreach_media_from_db(filter, Use, &sum);  // the first one finds the way
    for (auto _ : state)
        if (media_info_foreach_media_from_db(filter, Use, &sum) != 0) state.SkipWithError("page");
    benchmark::DoNotOptimize(sum);
    media_filter_destroy(filter);
}

// Forward through the first 100 pages, one after the other, as clients do.
void Sequence(benchmark::State& state) {
    const media_filter_h filter = Photos(bigStorage);
    size_t sum = 0;
    int offset = 0;
    for (auto _ : state) {
        media_filter_set_offset(filter, offset, kPage);
        media_info_foreach_media_from_db(filter, Use, &sum);
        offset = (offset + kPage) % (100 * kPage);
    }
    benchmark::DoNotOptimize(sum);
    media_filter_destroy(filter);
}

// A page as clients get it.
void JsonPage(benchmark::State& state) {
    const media_filter_h filter = Photos(bigStorage);
    media_filter_set_offset(filter, 0, kPage);
    const auto append = [](media_info_h media, void* items) {
        dorn::CJsonHelper::GenerateMediaJson(media, *static_cast<Json::Value*>(items));
        return true;
    };
    for (auto _ : state) {
        Json::Value items(Json::arrayValue);
        media_info_foreach_media_from_db(filter, append, &items);
        benchmark::DoNotOptimize(Json::FastWriter().write(items));
    }
    media_filter_destroy(filter);
}

std::string NumberText(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

// The same object made of the columns of `kPlain`.
Json::Value PlainItem(const Query& row) {
    Json::Value item;
    item["id"] = "0123456789abcdef-" + std::to_string(row.Int(0));
    item["filename"] = row.Text(2);
    item["fullPathName"] = folder + "/big/" + row.Text(1) + '/' + row.Text(2);
    item["title"] = row.Text(3);
    item["mime"] = row.Text(4);
    item["size"] = std::to_string(row.Int(5));
    item["addedTime"] = std::to_string(row.Int(6));
    item["modifiedTime"] = std::to_string(row.Int(6));
    item["description"] = row.Text(7);
    item["width"] = std::to_string(row.Int(8));
    item["height"] = std::to_string(row.Int(9));
    item["orientation"] = row.Int(10) == 1 ? "normal" : "notAvailable";
    item["latitude"] = NumberText(row.Real(11));
    item["longitude"] = NumberText(row.Real(12));
    return item;
}

constexpr const char* kPlain =
    "SELECT i.number, f.path, i.name, i.title, i.mime, i.size, i.modified, i.description, i.width,"
    " i.height, i.orientation, i.latitude, i.longitude FROM item AS i CROSS JOIN folder AS f"
    " ON f.number = i.folder WHERE i.storage = (SELECT number FROM storage WHERE identity ="
    " 'uuid:big') AND i.type = 0 ORDER BY i.added DESC, i.number DESC LIMIT 1000";

// The same rows and the same JSON with nothing but SQLite between.
void PlainJsonPage(benchmark::State& state) {
    Connection connection(folder + "/media.db", SQLITE_OPEN_READONLY);
    for (auto _ : state) {
        Json::Value items(Json::arrayValue);
        Query query(connection, kPlain);
        while (query.Next()) items.append(PlainItem(query));
        benchmark::DoNotOptimize(Json::FastWriter().write(items));
    }
}

// And without any JSON.
void PlainPage(benchmark::State& state) {
    Connection connection(folder + "/media.db", SQLITE_OPEN_READONLY);
    size_t sum = 0;
    for (auto _ : state) {
        Query query(connection, kPlain);
        while (query.Next()) {
            const std::string path = folder + "/big/" + query.Text(1) + '/' + query.Text(2);
            sum += path.size() + query.Text(3).size() + static_cast<size_t>(query.Int(5));
        }
    }
    benchmark::DoNotOptimize(sum);
}

void FolderCount(benchmark::State& state) {
    std::string id;
    media_filter_h filter = Photos(bigStorage);
    media_filter_destroy(filter);
    media_filter_create(&filter);
    media_filter_set_storage(filter, bigStorage.c_str());
    media_filter_set_offset(filter, 10, 1);
    media_folder_foreach_folder_from_db(
        filter,
        [](media_folder_h found, void* out) {
            char* text = nullptr;
            media_folder_get_folder_id(found, &text);
            *static_cast<std::string*>(out) = text;
            free(text);
            return true;
        },
        &id);
    int count = 0;
    for (auto _ : state) media_folder_get_media_count_from_db(id.c_str(), nullptr, &count);
    state.counters["items"] = count;
    media_filter_destroy(filter);
}

double ResidentMiB() {
    std::ifstream statm("/proc/self/statm");
    long total = 0, resident = 0;
    statm >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

// Of all threads of this process.
long WakeUps() {
    long sum = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0) sum += atol(line.c_str() + 24);
    }
    return sum;
}

// How often the threads of the idle service wake up in two seconds, this one left out.
long IdleWakeUps() {
    const long before = WakeUps();
    sleep(2);
    return WakeUps() - before - 1;
}

double MillisecondsOf(const std::function<void()>& body) {
    const auto begin = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
        .count();
}

int TakeItems(int& argc, char** argv) {
    int items = 1000000;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], "--items=", 8) == 0)
            items = atoi(argv[i] + 8);
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    return std::max(items, 2 * kPage);
}

void Run(int items, Times& times) {
    const int deep = items - kPage;
    const auto add = [](const char* name, auto body) {
        benchmark::RegisterBenchmark(name, body)->Unit(benchmark::kMillisecond)->Repetitions(5);
    };
    add("count of one kind, large", [](benchmark::State& s) { Count(s, bigStorage); });
    add("count of one kind, 1,000", [](benchmark::State& s) { Count(s, smallStorage); });
    add("page at the end", [deep](benchmark::State& s) { Page(s, deep); });
    add("page at 0", [](benchmark::State& s) { Page(s, 0); });
    add("page after page", Sequence);
    add("page of plain SQLite", PlainPage);
    add("page as JSON", JsonPage);
    add("page of plain SQLite as JSON", PlainJsonPage);
    add("count of a folder", FolderCount);
    benchmark::RunSpecifiedBenchmarks(&times);
}

}  // namespace

int main(int argc, char** argv) {
    const int items = TakeItems(argc, argv);
    benchmark::Initialize(&argc, argv);
    SetLogPriority(LOG_ERROR);
    char name[] = "/tmp/media-benchmark-XXXXXX";
    if (!mkdtemp(name)) return 1;
    folder = name;
    {
        Store store(folder + "/media.db");
        Fill(store, "small", 1000);
        Fill(store, "big", items);
    }
    ConfigureMediaService({folder + "/media.db", "/nonexistent/extractor"});
    const double connecting = MillisecondsOf([] { media_content_connect(); });
    smallStorage = Mount("small");
    bigStorage = Mount("big");
    std::printf("%d items, database of %.0f MiB, connected in %.1f ms, then %.1f MiB resident\n",
                items,
                static_cast<double>(std::filesystem::file_size(folder + "/media.db")) / 1048576.0,
                connecting, ResidentMiB());
    const auto first = [items](int offset) {
        size_t sum = 0;
        const media_filter_h filter = Photos(bigStorage);
        media_filter_set_offset(filter, std::min(offset, items - kPage), kPage);
        media_info_foreach_media_from_db(filter, Use, &sum);
        media_filter_destroy(filter);
    };
    const double atEnd = MillisecondsOf([&] { first(items); });
    const double next = MillisecondsOf([&] { first(items - 2 * kPage); });
    std::printf("first page of all, at the end: %.1f ms; the one before it: %.1f ms\n", atEnd,
                next);
    Times times;
    Run(items, times);
    std::printf("\n");
    PrintRatio(times, "count, 1,000,000 against 1,000", "count of one kind, large",
               "count of one kind, 1,000", 2.0);
    PrintRatio(times, "page of 1,000 at the end against offset 0", "page at the end", "page at 0",
               1.2);
    PrintRatio(times, "page of 1,000 as JSON against plain SQLite as JSON", "page as JSON",
               "page of plain SQLite as JSON", 1.5);
    std::printf("idle: %.1f MiB resident (aim: 64), %ld wake-ups in 2 s (aim: 0)\n", ResidentMiB(),
                IdleWakeUps());
    media_content_disconnect();
    ShutdownMediaService();
    std::filesystem::remove_all(folder);
    return 0;
}
