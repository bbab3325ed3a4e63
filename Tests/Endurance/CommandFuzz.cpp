// Random commands, arguments and JSON against the real service, many under way at a time. It must
// neither crash nor hang nor grow, and still serve an ordinary client afterwards.
#include <cstdio>
#include <random>
#include <thread>

#include "Endurance/LongRun.h"
#include "Service/MediaClient.h"
#include "Service/RawClient.h"
#include "Service/Sticks.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

constexpr unsigned long kThreads = 2;
constexpr int kUnderWay = 200;         // commands of one client without an answer yet
constexpr int kPerHandle = 4000;       // then another one: what is registered stays with a handle
constexpr int kPerBrokenProtocol = 2;  // handles between two clients that break the protocol
constexpr size_t kHuge = 200 * 1000;   // times that a piece is repeated, rarely

// What an ordinary client knows of the service.
struct World {
    std::string socket;
    Texts storages;
    Texts paths;
    Texts mediaIds;
    Ledger ledger;
};

std::string Valid(const std::string& bytes) {
    gchar* made = g_utf8_make_valid(bytes.c_str(), static_cast<gssize>(bytes.size()));
    const std::string text = made;
    g_free(made);
    return text;
}

std::string Repeated(const std::string& text, size_t times) {
    std::string all;
    for (size_t i = 0; i < times; ++i) all += text;
    return all;
}

// Texts that a client could send but should not. One thread; a seed always gives the same.
class Inventor {
public:
    Inventor(const World& world, unsigned long seed) : m_world(world), m_random(seed) {}

    size_t Number(size_t below) { return m_random() % below; }
    bool OneIn(size_t times) { return Number(times) == 0; }
    const std::string& OneOf(const Texts& texts) { return texts[Number(texts.size())]; }

    std::string Bytes(size_t length) {
        std::string bytes;
        while (bytes.size() < length) bytes += static_cast<char>(Number(256));
        return bytes;
    }
    // A few places changed.
    std::string Mutated(std::string text) {
        static const Texts kPieces = {"\"",         "\\",
                                      "\\u0000",    "\\ud800",
                                      "{",          "}",
                                      "[",          "]",
                                      ",",          ":",
                                      "null",       "-",
                                      "1e999",      "/*c*/",
                                      "\n",         "\x7f",
                                      "\x01",       "%n",
                                      "../",        "$USB_DIR",
                                      "0 OR 1",     ";--",
                                      "\u202e",     "\uffff",
                                      "\U0010ffff", "12345678901234567890"};
        for (size_t times = 1 + Number(4); times > 0; --times) {
            const size_t at = Number(text.size() + 1);
            if (OneIn(2))
                text.insert(at, OneIn(3000) ? Repeated(OneOf(kPieces), kHuge) : OneOf(kPieces));
            else if (OneIn(2))
                text.erase(at, Number(4));
            else
                text.insert(at, OneIn(2) ? text.substr(0, Number(20)) : Bytes(1));
        }
        return text;
    }
    // The command and its arguments; UTF-8 without NUL, which is what the bus can carry.
    Texts Words() {
        static const Texts kCommands = {"Query",
                                        "Fetch",
                                        "GetCount",
                                        "StartSync",
                                        "StopSync",
                                        "GetSyncState",
                                        "SubscribeEvent",
                                        "UnsubscribeEvent",
                                        "RegisterContents",
                                        "UnregisterContents",
                                        "Query",
                                        "Fetch"};
        static const Texts kRare = {"Connect", "Disconnect", "GetStorages"};
        Texts words{OneIn(30) ? OneOf(kRare) : OneOf(kCommands)};
        for (int place = 1; place <= 4; ++place) words.push_back(Fitting(words[0], place));
        for (std::string& word : words)
            if (OneIn(&word == &words[0] ? 30 : 3)) word = Valid(Mutated(word));
        return words;
    }

private:
    std::string Fitting(const std::string& name, int place) {
        static const Texts kKinds = {"photo", "music", "video", "folder"};
        static const Texts kNumbers = {"0",           "-1",     "+7",    "2147483648",
                                       "-2147483648", "0x2",    "4 abc", "1000",
                                       "1001",        "\u0664", ""};
        if (name == "Query") {
            if (place == 1) return OneOf(m_world.storages);
            if (place == 2) return OneOf(kKinds);
            return place == 3 ? OneOf(m_world.paths) : OneIn(50) ? "true" : "false";
        }
        if (name == "Fetch" || name == "GetCount")
            return OneIn(2) ? OneOf(kNumbers) : std::to_string(Number(300));
        return name == "RegisterContents" ? Json("fullpaths", m_world.paths)
                                          : Json("ids", m_world.mediaIds);
    }
    std::string Json(const std::string& key, const Texts& texts) {
        static const Texts kValues = {"null",       "[]",       "{\"a\":[1,{}]}",
                                      "[\"\\x\",]", "'single'", "5"};
        if (OneIn(40)) return Repeated(OneIn(2) ? "[" : "{\"ids\":", size_t{1} << Number(15));
        if (OneIn(4)) return "{\"" + key + "\":" + OneOf(kValues) + "}";
        std::string list;
        for (size_t i = Number(4); i > 0; --i) list += "\"" + OneOf(texts) + "\",";
        return "{\"" + key + "\":[" + list + "\"" + OneOf(texts) + "\"]}";
    }

    const World& m_world;
    std::mt19937_64 m_random;
};

// Connections of their own, which the service may close, and nothing else.
void BreakTheProtocol(World& world, Inventor& inventor) {
    world.ledger.Done("protocol broken");
    RawClient raw(world.socket);
    if (inventor.OneIn(4)) return raw.Write(inventor.Bytes(inventor.Number(3000)));
    if (!raw.Authenticate()) return world.ledger.Wrong("authentication refused");
    if (inventor.OneIn(3)) return raw.Write(inventor.Bytes(16 + inventor.Number(3000)));
    // A call as it would be, with some bytes changed: lengths that lie, text that is not UTF-8.
    std::string call = raw.Message(
        "Execute", g_variant_new("(isssss)", 1, "Query", "\u00e9\u00e9", "a", "b", "c"));
    for (size_t i = inventor.Number(4) + 1; i > 0; --i)
        call[inventor.Number(call.size())] = static_cast<char>(inventor.Number(256));
    raw.Write(call);
    raw.Call("Open", g_variant_new("(s)", "raw"));
}

void Note(World& world, const Texts& words, const Answer& answer) {
    world.ledger.Refused(answer.error.empty() ? answer.handled ? "handled" : "not handled"
                                              : answer.error);
    if (answer.error != "local") return;
    std::string all;
    for (const auto& word : words) all += "[" + word.substr(0, 200) + "] ";
    world.ledger.Wrong("no answer: " + answer.text + ", arguments " + all);
}

// Commands of one handle are run one after the other: who waits for the answer to each 200th has
// waited for the others.
void SendRandomCommands(World& world, unsigned long seed, long count) {
    Inventor inventor(world, seed);
    DBusClient client(world.socket);
    while (count > 0 && world.ledger.WrongTotal() == 0) {
        if (inventor.OneIn(kPerBrokenProtocol)) BreakTheProtocol(world, inventor);
        const int handle = client.Open("fuzz");
        if (handle < 0) return world.ledger.Wrong("no handle");
        client.Execute(handle, "Connect");
        for (int i = 1; i <= kPerHandle && count > 0; ++i, --count) {
            const Texts words = inventor.Words();
            const int target =
                inventor.OneIn(50) ? static_cast<int>(inventor.Number(400)) - 10 : handle;
            world.ledger.Done("command");
            if (i % kUnderWay != 0)
                client.Send(target, words[0], words[1], words[2], words[3], words[4]);
            else if (inventor.OneIn(12))
                Note(world, words, client.ExecuteWithParamList(target, words[0], words));
            else
                Note(world, words,
                     client.Execute(handle, words[0], words[1], words[2], words[3], words[4]));
        }
        client.TakeAll();
        if (!client.Close(handle).empty()) world.ledger.Wrong("Close failed");
    }
}

// An ordinary client's way through the service; what it does not find as it must is thrown.
void LearnWorld(World& world) {
    MediaClient client(world.socket);
    world.storages = {client.Storage("SMALL")["id"].asString()};
    if (client.Query(world.storages[0]) <= 0) throw std::runtime_error("nothing is found");
    const Json::Value page = client.Fetch(0, 50);
    if (page["photos"].empty()) throw std::runtime_error("an empty page");
    for (const auto& photo : page["photos"]) {
        world.mediaIds.push_back(photo["id"].asString());
        world.paths.push_back(photo["fullPathName"].asString());
    }
}

void RunFuzzers(World& world, ServiceProcess& service, unsigned long seed, long count) {
    std::vector<std::thread> threads;
    for (unsigned long i = 0; i < kThreads; ++i)
        threads.emplace_back([&world, seed, count, i] {
            SendRandomCommands(world, seed + i * 1000, count / static_cast<long>(kThreads));
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
    World world;
    world.socket = service.Socket();
    if (!service.WaitUntilServing()) throw std::runtime_error("no service: " + service.Log());
    LearnWorld(world);
    const auto begin = Clock::now();
    RunFuzzers(world, service, given.seed, given.amount / 10);
    const Vitals start = QuietVitals(service.Pid());
    RunFuzzers(world, service, given.seed + 1, given.amount - given.amount / 10);
    const double took = std::chrono::duration<double>(Clock::now() - begin).count();
    JudgeGrowth(start, QuietVitals(service.Pid()), world.ledger);
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
