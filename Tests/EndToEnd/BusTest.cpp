// The service on a message bus: its name, its clients, and their loss.
#include <signal.h>
#include <unistd.h>

#include <fstream>

#include "Service/ServiceTest.h"
#include "Service/Vitals.h"

namespace test {
namespace {

constexpr char kConfiguration[] = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><listen>unix:path=%</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow eavesdrop="true"/>
<allow own="*"/></policy></busconfig>)";

// On either kind of bus. Both are daemons of our own.
class BusTest : public ServiceTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        std::string configuration = kConfiguration;
        configuration.replace(configuration.find('%'), 1, BusSocket());
        std::ofstream(Folder() + "/bus.conf") << configuration;
        m_bus = std::make_unique<Program>(
            std::vector<std::string>{"dbus-daemon", "--nofork", "--config-file",
                                     Folder() + "/bus.conf"},
            Folder() + "/bus.log");
        ASSERT_TRUE(Until([&] { return access(BusSocket().c_str(), F_OK) == 0; }));
        m_onBus = std::make_unique<Program>(
            std::vector<std::string>{SERVICE_PROGRAM, "--bus", GetParam(), "--usb", "directory",
                                     "--usb-root", UsbRoot(), "--database", Folder() + "/media.db",
                                     "--log-level", "trace"},
            Folder() + "/service.log", Environment());
        ASSERT_TRUE(Until([&] { return OnBus({"run", "StartSync"}).status == 0; }));
    }

    void TearDown() override {
        m_onBus->Signal(SIGTERM);
        EXPECT_EQ(m_onBus->Wait(), m_busDied ? 1 : 0);
        EXPECT_EQ(Told("> Process Created!!!"), 1u);
        EXPECT_EQ(Told("> Process Destroyed!!!"), 1u);
    }

    Outcome OnBus(std::vector<std::string> words) const {
        words.insert(words.begin(), {CONTENTSCTL, "--bus", GetParam()});
        return RunProgram(words, Environment());
    }

    std::string BusSocket() const { return Folder() + "/bus"; }
    Variables Environment() const {
        const std::string address = "unix:path=" + BusSocket();
        return {{"DBUS_SESSION_BUS_ADDRESS", address}, {"DBUS_SYSTEM_BUS_ADDRESS", address}};
    }

    std::unique_ptr<Program> m_bus;
    std::unique_ptr<Program> m_onBus;
    bool m_busDied = false;
};

TEST_P(BusTest, ServesClientsUnderItsName) {
    m_sticks.Make("stick", "--photos", 30);
    EXPECT_EQ(OnBus({"count", "stick", "photo"}).output, "31\n");
    EXPECT_GT(Told("> CPlivEngineContentsMgr is allocated on : 0x"), 0u);
    const Outcome second =
        RunProgram({SERVICE_PROGRAM, "--bus", GetParam(), "--usb", "directory", "--usb-root",
                    UsbRoot(), "--database", Folder() + "/other.db"},
                   Environment());
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.errors.find("has the name"), std::string::npos) << second.errors;
}

// A client that is killed says no good-bye; its engine disconnects when the bus tells of it.
TEST_P(BusTest, AClientThatVanishesTakesItsEngineAlong) {
    m_sticks.Make("stick", "--photos", 30);
    Program monitor({CONTENTSCTL, "--bus", GetParam(), "monitor"}, Folder() + "/monitor",
                    Environment());
    ASSERT_TRUE(WaitForText(Folder() + "/monitor", "Listening"));
    const auto threads = [&] { return ReadVitals(m_onBus->Pid()).threads; };
    const long before = threads();
    monitor.Signal(SIGKILL);
    monitor.Wait();
    EXPECT_TRUE(Until([&] { return threads() < before; })) << "its engine lives on";
    EXPECT_EQ(OnBus({"count", "stick", "photo"}).output, "31\n");
}

TEST_P(BusTest, TheEndOfTheBusEndsTheService) {
    m_busDied = true;
    m_bus->Signal(SIGTERM);
    m_bus->Wait();
    EXPECT_EQ(m_onBus->Wait(), 1);
    EXPECT_EQ(Told("the connection to the message bus is lost"), 1u);
}

// Everybody's handles are for buses of one user.
TEST_P(BusTest, LastingHandlesAreForTheSessionBusOnly) {
    const Outcome call = RunProgram(
        {"gdbus", "call", "--address", "unix:path=" + BusSocket(), "--dest", "dorn.ContentsMgr",
         "--object-path", "/dorn/PlivHost", "--method", "dorn.PlivHost1.OpenLasting", "script"});
    if (std::string(GetParam()) == "session")
        EXPECT_EQ(call.status, 0) << call.errors;
    else
        EXPECT_NE(call.errors.find("LimitReached"), std::string::npos) << call.errors;
}

INSTANTIATE_TEST_SUITE_P(Kinds, BusTest, ::testing::Values("session", "system"),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_F(ServiceTest, ToolAndServiceTellThatThereIsNoBus) {
    const Variables nowhere{{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + Folder() + "/none"}};
    const Outcome service = RunProgram({SERVICE_PROGRAM, "--bus", "session"}, nowhere);
    EXPECT_EQ(service.status, 1);
    EXPECT_NE(service.errors.find("message bus"), std::string::npos) << service.errors;
    EXPECT_EQ(RunProgram({CONTENTSCTL, "--bus", "session", "storages"}, nowhere).status, 2);
}

}  // namespace
}  // namespace test
