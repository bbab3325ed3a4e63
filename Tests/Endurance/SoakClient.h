// One client of the soak: random commands, and a book of what the service owes it.
#ifndef TESTS_ENDURANCE_SOAK_CLIENT_H
#define TESTS_ENDURANCE_SOAK_CLIENT_H

#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Endurance/SoakWorld.h"
#include "Service/DBusClient.h"

namespace Json {
class Value;
}

namespace test {

// One thread.
class SoakClient {
public:
    SoakClient(SoakWorld& world, unsigned long seed);
    // Until `stop`; then the last events are waited for.
    void Run();

private:
    using Action = void (SoakClient::*)();
    struct Owed {
        long queries = 0;
        long registrations = 0;
        long removals = 0;
        bool operator!=(const Owed& other) const {
            return queries != other.queries || registrations != other.registrations ||
                   removals != other.removals;
        }
    };

    void Join();
    void Leave();
    Action Choose();
    void QueryMedia();
    void QueryFolder();
    void FetchPage();
    void AskCount();
    void AskStorages();
    void RegisterSome();
    void RemoveSome();
    void Nonsense();
    void Reconnect();
    void CloseRudely();
    void LeaveAndJoin();
    void Settle();
    void WaitForOwed(const std::function<bool()>& enough);
    void ReportMissing();

    // The answer as a number; 0 for a refusal, which is put down.
    int Command(const std::string& name, const std::string& arg1 = "", const std::string& arg2 = "",
                const std::string& arg3 = "", const std::string& arg4 = "");
    void TakeEvents();
    void Take(const Event& event);
    void TakePage(const Json::Value& page);
    bool IsSettled() const;
    int Number(int below);
    const std::string& OneOf(const std::vector<std::string>& texts);

    const SoakWorld& m_world;
    Ledger& m_ledger;
    std::mt19937_64 m_random;
    std::unique_ptr<DBusClient> m_client;
    int m_handle = -1;
    bool m_connected = false;
    // What was accepted since the handle was opened, and what has come of it.
    Owed m_accepted;
    Owed m_completed;
    std::set<int> m_pages;      // asked for
    std::set<int> m_pagesSeen;  // answered
    std::vector<std::string> m_mediaIds;
};

// Bodies of processes that are going to be killed: commands without end, pages that nobody reads,
// and all that a megabyte of text can be asked for.
int RunVictim(const std::string& socket, const std::string& storage);
int RunGreedy(const std::string& socket, const std::string& storage);
int RunSlowReader(const std::string& socket, const std::string& storage);

}  // namespace test

#endif
