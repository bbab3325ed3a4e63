// Random commands, arguments and JSON against the real service, many under way at a time. It must
// neither crash nor hang nor grow, and still serve an ordinary client afterwards.
#include <cstdio>
#include <thread>

#include "Endurance/Fuzzer.h"
#include "Endurance/LongRun.h"
#include "Service/MediaClient.h"
#include "Service/Sticks.h"

namespace test {
namespace {

constexpr int kThreads = 2;

// An ordinary client's way through the service; what it does not find as it must is thrown.
void LearnWorld(FuzzWorld& world) {
    MediaClient client(world.socket);
    world.storages = {client.Storage("SMALL")["id"].asString()};
    if (client.Query(world.storages[0]) <= 0) throw std::runtime_error("nothing is found");
    const Json::Value page = client.Fetch(0, 50);
    if (page["photos"].empty()) throw std::runtime_error("an empty page");
    for (const auto& photo : page["photos"]) {
        world.mediaIds.push_back(photo["id"].asString());
        world.paths.push_back(photo["path"].asString());
    }
}

void RunFuzzers(FuzzWorld& world, ServiceProcess& service, unsigned long seed, long count) {
    std::vector<std::thread> threads;
    for (unsigned long i = 0; i < kThreads; ++i)
        threads.emplace_back([&world, seed, count, i] {
            SendRandomCommands(world, seed + i * 1000, count / kThreads);
        });
    for (auto& thread : threads) thread.join();
    if (!service.IsRunning()) world.ledger.Wrong("the service ended by itself");
}

int Run(const RunOptions& given) {
    const TempFolder scratch;
    Sticks sticks(scratch.Path());
    const auto samples = std::filesystem::path(given.samples) / "small";
    MakeSamples("--small", samples);
    sticks.Add("SMALL", samples);
    ServiceOptions options;
    options.folder = scratch.Path();
    options.usbRoot = sticks.Root();
    options.logLevel = "none";
    ServiceProcess service(options);
    FuzzWorld world;
    world.socket = service.Socket();
    if (!service.WaitUntilServing()) throw std::runtime_error("no service: " + service.Log());
    LearnWorld(world);
    const auto begin = Clock::now();
    RunFuzzers(world, service, given.seed, given.amount / 10);
    const Vitals start = QuietVitals(service.Pid());
    if (!world.stop) RunFuzzers(world, service, given.seed + 1, given.amount - given.amount / 10);
    const double took = std::chrono::duration<double>(Clock::now() - begin).count();
    JudgeGrowth(service.Pid(), start, QuietVitals(service.Pid()), world.ledger);
    std::printf("%.1f s\n", took);
    if (service.IsRunning()) {
        // Its photos may have been removed, and are found again by the next scan.
        sticks.PullOut("SMALL");
        sticks.PlugIn("SMALL");
        try {
            LearnWorld(world);
        } catch (const std::runtime_error& error) {
            world.ledger.Wrong(std::string("no ordinary client is served: ") + error.what());
        }
    }
    StopWell(service, world.ledger);
    return Verdict(service, world.ledger);
}

}  // namespace
}  // namespace test

int main(int argc, char** argv) {
    return test::RunWith({argv + 1, argv + argc}, {"count", 1000000, 10}, test::Run);
}
