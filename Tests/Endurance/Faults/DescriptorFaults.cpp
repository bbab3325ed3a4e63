// No new descriptor.
#include <sys/resource.h>

#include <algorithm>
#include <future>
#include <map>
#include <stdexcept>
#include <vector>

#include "Endurance/Faults/FaultTest.h"
#include "Service/RawClient.h"
#include "Service/Vitals.h"

namespace test {
namespace {

namespace fs = std::filesystem;

// As a system starts it that gives every process few and lets it take more. Async-signal-safe.
void LowerSoftLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 200);
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The lowest descriptor that the process could get next.
rlim_t LowestFree(pid_t process) {
    std::error_code error;
    rlim_t number = 0;
    const auto isOpen = [&] {
        const fs::path link = fs::path("/proc") / std::to_string(process) / "fd";
        return fs::symlink_status(link / std::to_string(number), error).type() ==
               fs::file_type::symlink;
    };
    while (isOpen()) ++number;
    return number;
}

enum class Visit { Served, TurnedAway, Unanswered };

// Clients that all do the same at once, each on a thread of its own: come, ask, go.
class Crowd {
public:
    explicit Crowd(const ServiceProcess& service) : m_service(service) {}

    void Come(int clients) {
        for (int i = 0; i < clients; ++i)
            m_visits.push_back(std::async(std::launch::async, [this] { return VisitOnce(); }));
    }
    // How many ended so, once all have ended.
    int Count(Visit end) {
        for (auto& visit : std::exchange(m_visits, {})) ++m_ends[visit.get()];
        return m_ends[end];
    }

private:
    Visit VisitOnce() const {
        try {
            const auto client = m_service.NewClient();
            const int handle = client->Open("crowd");
            for (const char* command : {"Connect", "GetStorages", "Disconnect"})
                if (client->Execute(handle, command).text.find("imeout") != std::string::npos)
                    return Visit::Unanswered;
            return Visit::Served;
        } catch (const std::runtime_error&) {
            return Visit::TurnedAway;
        }
    }

    const ServiceProcess& m_service;
    std::vector<std::future<Visit>> m_visits;
    std::map<Visit, int> m_ends;
};

// However few descriptors there are, the service says no and lives; with enough it says yes.
class DescriptorFaults : public FaultTest {
protected:
    void SetUp() override {
#ifdef ENDURANCE_CHECKS_NEED_DESCRIPTORS
        GTEST_SKIP() << "this build's checks of virtual pointers need descriptors themselves";
#endif
    }
    void SetLimit(rlim_t limit) {
        rlimit few = m_before;
        few.rlim_cur = limit;
        ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    }
    ServiceOptions FewDescriptors() const {
        ServiceOptions options = Options();
        options.inChild = LowerSoftLimit;
        return options;
    }
    void StartAndNoteLimit() {
        m_stick = AddPhotos("STICK");
        StartService(FewDescriptors());
        ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, nullptr, &m_before), 0);
        EXPECT_EQ(m_before.rlim_cur, m_before.rlim_max) << "it takes all that it may have";
    }
    rlim_t CountOpen() const {
        return static_cast<rlim_t>(ReadVitals(m_service->Pid()).descriptors);
    }
    // Everything that takes a descriptor, at once.
    void BeBusy(const std::string& name, MediaClient& visitor, Crowd& crowd) {
        crowd.Come(3);
        AddPhotos(name, 5);
        visitor.StorageAt(m_stick);
        visitor.FetchEvent(0, 10);
        visitor.Query("no-such-storage", "photo", "", "false");
        visitor.Query(m_id, "photo", "", "false");
        ASSERT_TRUE(m_service->IsRunning()) << m_service->Log();
    }
    void ExpectFullService() {
        EXPECT_EQ(CountOn(m_stick), kPhotos) << m_service->Log();
        const auto late = AddPhotos("LATE", 30);
        MediaClient visitor(Socket());
        EXPECT_TRUE(Until([&] { return !visitor.StorageAt(late).empty(); })) << m_service->Log();
        EXPECT_EQ(visitor.Query(visitor.StorageAt(late)), 30) << m_service->Log();
    }

    fs::path m_stick;
    std::string m_id;
    rlimit m_before{};
};

TEST_F(DescriptorFaults, TheLimitCostsAnswersNotTheService) {
    StartAndNoteLimit();
    MediaClient early(Socket());
    ASSERT_TRUE(early.IsConnected());
    m_id = early.StorageAt(m_stick);
    ASSERT_EQ(early.Query(m_id), kPhotos);
    Crowd crowd(*m_service);
    for (rlim_t spare = 17; spare-- > 0;) {
        SCOPED_TRACE("spare descriptors: " + std::to_string(spare));
        SetLimit(m_before.rlim_cur);
        crowd.Come(2);  // these may be in at any point when the descriptors run out
        SetLimit(CountOpen() + spare);
        BeBusy("SPARE" + std::to_string(spare), early, crowd);
    }
    for (const rlim_t part : {1, 2}) {
        SCOPED_TRACE("none to be had, the limit is a part of what is open: " +
                     std::to_string(part));
        SetLimit(LowestFree(m_service->Pid()) / part);
        BeBusy("NONE" + std::to_string(part), early, crowd);
    }
    EXPECT_LT(Told("turned away"), 5u) << "a line for each would flood the log";
    EXPECT_LT(Told("Too many open files"), 1000u) << "something tries again at once";
    SetLimit(m_before.rlim_cur);
    EXPECT_GT(crowd.Count(Visit::TurnedAway), 0);
    EXPECT_EQ(crowd.Count(Visit::Unanswered), 0);
    ExpectFullService();
    // What was plugged in meanwhile is found without any event to tell of it.
    for (const char* name : {"SPARE16", "SPARE8", "SPARE0", "NONE1", "NONE2"})
        EXPECT_TRUE(Until([&] { return !early.StorageAt(m_sticks.PathOf(name)).empty(); }))
            << name << ": " << m_service->Log();
}

// The very first connection makes what later ones share.
TEST_F(DescriptorFaults, FirstClientsMayComeWhenThereIsNoneLeft) {
    m_stick = AddPhotos("STICK");
    m_service = std::make_unique<ServiceProcess>(FewDescriptors());
    ASSERT_TRUE(m_service->WaitForLog("serving")) << m_service->Log();
    ASSERT_EQ(prlimit(m_service->Pid(), RLIMIT_NOFILE, nullptr, &m_before), 0);
    for (rlim_t spare = 6; spare-- > 0;) {
        SetLimit(CountOpen() + spare);
        EXPECT_THROW(m_service->NewClient(), std::runtime_error);
        ASSERT_TRUE(m_service->IsRunning()) << m_service->Log();
    }
    SetLimit(m_before.rlim_cur);
    ExpectFullService();
}

TEST_F(DescriptorFaults, WhoWaitsInLineIsServedWhenThereIsRoom) {
    StartAndNoteLimit();
    SetLimit(LowestFree(m_service->Pid()) / 2);  // so that giving one up makes no room either
    std::vector<std::unique_ptr<RawClient>> line;
    for (int i = 0; i < 5; ++i) line.push_back(std::make_unique<RawClient>(Socket()));
    ASSERT_TRUE(m_service->WaitForLog("wait in line")) << m_service->Log();
    SetLimit(m_before.rlim_cur);
    for (auto& client : line) EXPECT_TRUE(client->Authenticate()) << m_service->Log();
    line.clear();
    ExpectFullService();
}

}  // namespace
}  // namespace test
