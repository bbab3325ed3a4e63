// Clients that want all that the service can hold.
#include <list>

#include "Endurance/Faults/FaultTest.h"
#include "Service/Program.h"
#include "Service/Vitals.h"

namespace test {
namespace {

using ClientFaults = FaultTest;

TEST_F(ClientFaults, EightOfEachKindEndNeitherTheServiceNorAnybodyElse) {
    const auto stick = AddPhotos("stick");
    StartService();
    const std::string storage = MediaClient(Socket()).StorageAt(stick);
    std::list<Program> clients;
    for (int i = 0; i < 8; ++i)
        for (const char* kind : {"--greedy", "--slow"})
            clients.emplace_back(std::vector<std::string>{SOAK, kind, Socket(), storage},
                                 "/dev/null");
    EXPECT_TRUE(Until([&] { return Told("are refused") >= 8; })) << LogText();
    EXPECT_EQ(CountOn(stick), kPhotos);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep freed memory
    EXPECT_LT(ReadVitals(m_service->Pid()).peakKiB, 256 * 1024);
#endif
}

}  // namespace
}  // namespace test
