// Clients that want all that the service can hold.
#include <iostream>
#include <memory>
#include <vector>

#include "Endurance/Faults/FaultTest.h"
#include "Service/Crew.h"
#include "Service/RawClient.h"
#include "Service/Vitals.h"

namespace test {
namespace {

using ClientFaults = FaultTest;

constexpr int kClients = 8;
constexpr int kTimes = 40;   // a client, each way of being greedy; a megabyte a time
constexpr long kMiB = 1024;  // in KiB

// The sanitizers keep freed memory for long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMemoryIsJudged = false;
#else
constexpr bool kMemoryIsJudged = true;
#endif

std::string Megabyte() {
    return std::string(1000 * 1000, 'x');
}

// One that asks for all, reads every answer, and looks whether it is still served.
class GreedyClient {
public:
    explicit GreedyClient(const std::string& socket) : m_media(socket) {}

    int refused = 0;

    void Take(const std::string& storage) {
        m_media.Run("Query", storage, "photo");
        EXPECT_EQ(m_media.Run("GetCount", "2"), std::to_string(kPhotos));
        for (int i = 0; i < kTimes; ++i)
            Note(Execute("Query", storage, "folder", "/" + std::to_string(i) + Megabyte()));
        Execute("Query", "no such storage", "photo", "", "true");  // the worker waits for its scan
        const std::string paths = "{\"fullpaths\":[\"/" + Megabyte() + "\"]}";
        std::string many = "{\"fullpaths\":[";
        for (int i = 0; i < 300 * 1000; ++i) many += "\"\",";
        many += "\"\"]}";
        for (int i = 0; i < kTimes; ++i) Note(Execute("RegisterContents", "", paths));
        for (int i = 0; i < kTimes / 10; ++i) Note(Execute("UnregisterContents", "", many));
        EXPECT_FALSE(Execute(std::string(30 << 20, 'n')).error.empty());
        EXPECT_EQ(m_media.Run("GetCount", "2"), std::to_string(kPhotos)) << "a query was lost";
    }

private:
    Answer Execute(const std::string& command, const std::string& arg1 = "",
                   const std::string& arg2 = "", const std::string& arg3 = "",
                   const std::string& arg4 = "") {
        return m_media.Raw().Execute(m_media.Handle(), command, arg1, arg2, arg3, arg4);
    }
    void Note(const Answer& answer) {
        if (!answer.error.empty() || answer.value == "0") ++refused;
    }

    MediaClient m_media;
};

// Pages of which it reads none.
void AskAndNeverRead(const std::string& socket, const std::string& storage) {
    RawClient client(socket);
    ASSERT_TRUE(client.Authenticate());
    const int handle = client.Open();
    client.Execute(handle, "Connect");
    client.Execute(handle, "Query", storage.c_str(), "photo");
    for (int i = 0; i < 2000; ++i) client.Execute(handle, "Fetch", "0", "1000");
}

TEST_F(ClientFaults, EightGreedyClientsEndNeitherTheServiceNorEachOther) {
    const auto stick = AddPhotos("stick");
    StartService();
    ASSERT_EQ(CountOn(stick), kPhotos);
    const std::string storage = MediaClient(Socket()).StorageAt(stick);
    const long before = ReadVitals(m_service->Pid()).residentKiB;
    std::vector<std::unique_ptr<GreedyClient>> greedy;
    for (int i = 0; i < kClients; ++i) greedy.push_back(std::make_unique<GreedyClient>(Socket()));
    {
        Crew crew;
        for (auto& client : greedy) {
            crew.Add([&](auto&) { client->Take(storage); });
            crew.Add([&](auto&) { AskAndNeverRead(Socket(), storage); });
        }
    }
    const Vitals full = ReadVitals(m_service->Pid());
    EXPECT_EQ(CountOn(stick), kPhotos) << "nobody else may notice";
    for (auto& client : greedy) EXPECT_GT(client->refused, 0);
    EXPECT_GT(Told("are refused"), 0u);
    std::cout << "resident before " << before << ", with them " << full.residentKiB << ", at most "
              << full.peakKiB << " KiB\n";
    if (kMemoryIsJudged) {
        EXPECT_LT(full.peakKiB, 256 * kMiB);
    }
}

}  // namespace
}  // namespace test
