// One client of the soak: random commands, and a book of what the service owes it.
#ifndef TESTS_ENDURANCE_SOAK_CLIENT_H
#define TESTS_ENDURANCE_SOAK_CLIENT_H

#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Endurance/LongRun.h"
#include "Service/DBusClient.h"

namespace test {

using Random = std::mt19937_64;
using Texts = std::vector<std::string>;

// What clients know of the service. The lists do not change once they are learnt.
struct Known {
    std::string socket;
    Texts storages;  // ids, also of those that are away now
    Texts folders;   // as clients write them
    Texts files;
    Ledger ledger;
    std::atomic<bool> stop{false};
};

// One thread.
class SoakClient {
public:
    SoakClient(Known& known, unsigned long seed) : m_known(known), m_random(seed) {}
    // Until `stop`; then the last events are waited for.
    void Run();

private:
    using Action = void (SoakClient::*)();

    void Join();
    void Leave();
    Action Choose();
    void QueryMedia();
    void QueryFolder();
    void FetchPage();
    void Ask();
    void RegisterSome();
    void RemoveSome();
    void Reconnect();
    void CloseRudely();
    void LeaveAndJoin();
    void Settle();
    void WaitForOwed();

    // The answer as a number; 0 for a refusal, which is put down. What is accepted is owed the
    // event of that name.
    int Command(const Texts& words, const char* event = nullptr);
    void TakeEvents();
    void Take(const Event& event);
    void TakePage(const std::string& payload);
    size_t Owed() const;
    int Number(int below) { return std::uniform_int_distribution<int>(0, below - 1)(m_random); }
    const std::string& OneOf(const Texts& texts) { return texts[m_random() % texts.size()]; }

    Known& m_known;
    Random m_random;
    std::unique_ptr<DBusClient> m_client;
    int m_handle = -1;
    // What was accepted since the handle was opened, and has not come yet.
    std::map<std::string, long> m_owed;
    std::set<std::string> m_pages;
    Texts m_mediaIds;
};

// Bodies of processes that are going to be killed: commands without end, pages that nobody reads,
// and all that a megabyte of text can be asked for.
int RunVictim(const std::string& socket, const std::string& storage);
int RunGreedy(const std::string& socket, const std::string& storage);
int RunSlowReader(const std::string& socket, const std::string& storage);

}  // namespace test

#endif
