// The whole process: how long it takes to its first answer, what clients on its socket wait for,
// and what it takes when it does nothing.
//   ServiceRows [--quick]
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

#include "Log/Log.h"
#include "MediaContent/Store.h"
#include "MediaContent/Writer.h"
#include "Service/ServiceProcess.h"
#include "Service/Sticks.h"
#include "Service/Vitals.h"

namespace {

using namespace platform;
using namespace test;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kStorages = 4;
constexpr int kPerFolder = 500;
constexpr int kBatch = 500;

// A fault here would make every figure below it a lie.
void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "ServiceRows: %s\n", what);
    exit(1);
}

void PrintRow(const std::string& what, double value, const char* unit, double aim) {
    std::printf("ROW\t%s\t%.2f %s\t-\t-\tat most %g %s\t%s\n", what.c_str(), value, unit, aim, unit,
                value <= aim ? "met" : "NOT MET");
    std::fflush(stdout);
}

Change MakeChange(int number) {
    Change change;
    change.folder = "folder" + std::to_string(number / kPerFolder);
    change.name = "IMG_" + std::to_string(number) + ".JPG";
    change.type = number % 10 == 0 ? MEDIA_CONTENT_TYPE_VIDEO : MEDIA_CONTENT_TYPE_IMAGE;
    change.mime = "image/jpeg";
    change.facts = {1000 + number, 1600000000 + number, 0, number + 1};
    change.state = ItemState::Read;
    change.metadata.width = 4000;
    change.metadata.height = 3000;
    change.metadata.description = "A picture of something, number " + std::to_string(number);
    return change;
}

// Four sticks that hold nothing any more, as folders on the disk; what is known of them is kept
// then, for an empty folder that is no mount point may be a stick that failed to mount.
class Library {
public:
    explicit Library(int items) : m_sticks(m_scratch.Path()), m_items(items) {
        Store store(m_scratch / "media.db");
        for (int i = 0; i < kStorages; ++i) AddStick(store, "STICK" + std::to_string(i));
    }

    std::unique_ptr<ServiceProcess> Start() const {
        ServiceOptions options;
        options.folder = m_scratch.Path();
        options.usbRoot = m_sticks.Root();
        options.logLevel = "error";
        return std::make_unique<ServiceProcess>(options);
    }

private:
    void AddStick(Store& store, const std::string& name) {
        const auto path = m_sticks.Add(name);
        std::ofstream(path.string() + ".usb") << "[device]\nclass=8\nuuid=" << name << "\n";
        const int64_t storage =
            store.Write().RecordStorage("?" + name, "uuid:" + name, path.string(), 0);
        std::vector<Change> batch;
        for (int number = 0; number < m_items / kStorages; ++number) {
            batch.push_back(MakeChange(number));
            if (batch.size() < kBatch && number + 1 < m_items / kStorages) continue;
            store.Write().Apply(storage, batch, 1700000000 + number / 1000);
            batch.clear();
        }
        store.Write().StorageWent(storage, time(nullptr));
        store.Write().Checkpoint();
    }

    TempFolder m_scratch;
    Sticks m_sticks;
    const int m_items;
};

// From the start of the process to the answer of the first "Connect".
double MillisecondsToFirstAnswer(const Library& library) {
    const auto begin = Clock::now();
    const auto service = library.Start();
    Require(service->WaitUntilServing(), "the service does not come up");
    const auto client = service->NewClient();
    const int handle = client->Open();
    Require(client->Execute(handle, "Connect").value == "1", "Connect failed");
    const double took = Milliseconds(Clock::now() - begin).count();
    Require(service->Stop() == 0, "the service does not end well");
    return took;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void MeasureStart(int items, int rounds) {
    const Library library(items);
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) times.push_back(MillisecondsToFirstAnswer(library));
    std::printf("start: %d rounds, %.1f to %.1f ms\n", rounds,
                *std::min_element(times.begin(), times.end()),
                *std::max_element(times.begin(), times.end()));
    PrintRow("start to first \"Connect\" answered, " + std::to_string(items) + " items known",
             Median(times), "ms", 100);
}

std::string WordAfter(const std::string& text, const std::string& key) {
    const size_t at = text.find(key);
    if (at == std::string::npos) return "";
    const size_t begin = at + key.size();
    return text.substr(begin, text.find('"', begin) - begin);
}

// Counts and pages of every stick, at both ends: what a client does before it falls silent.
void UseAll(DBusClient& client, int handle, int items) {
    std::string storages = client.Execute(handle, "GetStorages").value;
    int counted = 0;
    for (size_t at; (at = storages.find("\"id\":\"")) != std::string::npos;) {
        const std::string id = WordAfter(storages, "\"id\":\"");
        storages.erase(0, at + 6);
        client.Execute(handle, "Query", id, "photo", "", "false");
        const auto event = client.Wait("QUERY_COMPLETED");
        Require(event && event->payload.find("\"result\":1") != std::string::npos, "query failed");
        const int count = atoi(event->payload.c_str() + strlen("{\"count\":"));
        counted += count;
        for (const int start : {0, count / 2, std::max(0, count - 1000)}) {
            client.Execute(handle, "Fetch", std::to_string(start), "1000");
            Require(client.Wait("FETCH_COMPLETED").has_value(), "no page");
        }
    }
    Require(counted == items - items / 10, "the service does not know the library");
}

double MillisecondsForPage(DBusClient& client, int handle, int start) {
    const auto begin = Clock::now();
    client.Execute(handle, "Fetch", std::to_string(start), "1000");
    Require(client.Wait("FETCH_COMPLETED").has_value(), "no page");
    return Milliseconds(Clock::now() - begin).count();
}

// What a client on the socket waits for: pages of the first stick from both ends, turn by turn,
// and its count.
void MeasurePages(DBusClient& client, int handle, int rounds) {
    const std::string id = WordAfter(client.Execute(handle, "GetStorages").value, "\"id\":\"");
    client.Execute(handle, "Query", id, "photo", "", "false");
    const auto event = client.Wait("QUERY_COMPLETED");
    Require(event.has_value(), "query failed");
    const int count = atoi(event->payload.c_str() + strlen("{\"count\":"));
    std::vector<double> first, last;
    for (int i = 0; i < rounds; ++i) {
        first.push_back(MillisecondsForPage(client, handle, 0));
        last.push_back(MillisecondsForPage(client, handle, std::max(0, count - 1000)));
    }
    const double atStart = Median(first), atEnd = Median(last);
    std::printf(
        "ROW\tpage of 1,000 over D-Bus at the end against offset 0\t%.2f ms\t%.2f ms\t"
        "%.2f\tat most 1.2\t%s\n",
        atEnd, atStart, atEnd / atStart, atEnd / atStart <= 1.2 ? "met" : "NOT MET");
    std::vector<double> counts;
    for (int i = 0; i < rounds; ++i) {
        const auto begin = Clock::now();
        client.Execute(handle, "Query", id, "photo", "", "false");
        Require(client.Wait("QUERY_COMPLETED").has_value(), "query failed");
        counts.push_back(Milliseconds(Clock::now() - begin).count());
    }
    PrintRow("query and its count over D-Bus, " + std::to_string(count) + " items", Median(counts),
             "ms", 1);
}

// How often each of the process's threads has gone to sleep by itself, by thread id.
std::map<pid_t, long> WakeUpsOf(pid_t process) {
    std::map<pid_t, long> wakeUps;
    const std::string key = "voluntary_ctxt_switches:";
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (line.compare(0, key.size(), key) == 0)
                wakeUps[std::stoi(task.path().filename())] = std::stol(line.substr(key.size()));
    }
    return wakeUps;
}

// Wake-ups between two looks; the end of a thread counts as one.
long Stirred(const std::map<pid_t, long>& before, const std::map<pid_t, long>& after) {
    long sum = 0;
    for (const auto& [thread, times] : after)
        sum += before.count(thread) ? times - before.at(thread) : times;
    for (const auto& [thread, times] : before) sum += after.count(thread) ? 0 : 1;
    return sum;
}

void MeasureIdle(int items, int quiet, std::chrono::seconds length) {
    const Library library(items);
    const auto service = library.Start();
    Require(service->WaitUntilServing(), "the service does not come up");
    const auto client = service->NewClient();
    const int handle = client->Open();
    Require(client->Execute(handle, "Connect").value == "1", "Connect failed");
    UseAll(*client, handle, items);
    MeasurePages(*client, handle, quiet);
    auto last = WakeUpsOf(service->Pid());
    auto since = Clock::now();
    Until(  // until nothing has stirred for longer than GLib keeps idle threads
        [&] {
            const auto now = WakeUpsOf(service->Pid());
            if (now != last || !ChildrenOf(service->Pid()).empty()) since = Clock::now();
            last = now;
            return Clock::now() - since > std::chrono::seconds(quiet);
        },
        std::chrono::seconds(90));
    const auto before = WakeUpsOf(service->Pid());
    const auto end = Clock::now() + length;
    Until([&] { return Clock::now() >= end; }, length + length);
    const long wakeUps = Stirred(before, WakeUpsOf(service->Pid()));
    const Vitals idle = ReadVitals(service->Pid());
    const std::string known = std::to_string(items) + " items known, idle";
    std::printf("idle: %ld KiB resident, of these %ld KiB of its own; %ld threads\n",
                idle.residentKiB, idle.privateKiB, idle.threads);
    PrintRow("memory, " + known, static_cast<double>(idle.residentKiB) / 1024, "MiB", 64);
    PrintRow("wake-ups in " + std::to_string(length.count()) + " s, " + known,
             static_cast<double>(wakeUps), "", 0);
    Require(service->Stop() == 0, "the service does not end well");
}

}  // namespace

int main(int argc, char** argv) {
    const bool quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
    SetLogPriority(LOG_ERROR);
    try {
        MeasureStart(quick ? 20000 : 100000, quick ? 3 : 15);
        MeasureIdle(quick ? 50000 : 1000000, quick ? 3 : 20, std::chrono::seconds(quick ? 3 : 20));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ServiceRows: %s\n", error.what());
        return 1;
    }
    return 0;
}
