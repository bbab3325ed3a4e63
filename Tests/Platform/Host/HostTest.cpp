#include "Platform/Host/HostTest.h"

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>

#include "Log/Log.h"

namespace test {

HostTest::HostTest() {
    char folder[] = "/tmp/pliv-host-XXXXXX";
    m_folder = mkdtemp(folder);
    platform::SetLogSink([this](const platform::LogLine& line) {
        std::lock_guard<std::mutex> lock(m_logMutex);
        m_log += line.text + "\n";
    });
}

HostTest::~HostTest() {
    Stop();
    platform::SetLogSink(nullptr);
    std::filesystem::remove_all(m_folder);
}

void HostTest::Start(const std::function<void(platform::ServerOptions&)>& change) {
    platform::ServerOptions options;
    options.socketPath = Path();
    if (change) change(options);
    std::promise<platform::Server*> made;
    m_thread = std::thread([this, options, &made] {
        platform::Server server(app, options);
        made.set_value(&server);
        EXPECT_TRUE(server.Run());
    });
    m_server = made.get_future().get();
}

void HostTest::Stop() {
    if (!m_server) return;
    m_server->Quit();
    m_thread.join();
    m_server = nullptr;
    EXPECT_EQ(app.live, 0) << "engines outlived the server";
    EXPECT_EQ(app.overlaps, 0) << "commands of one engine ran side by side";
    EXPECT_EQ(app.foreignDestructions, 0) << "engines were destroyed on a foreign thread";
    EXPECT_FALSE(std::filesystem::exists(Path())) << "the socket was left behind";
}

std::string HostTest::LogText() {
    std::lock_guard<std::mutex> lock(m_logMutex);
    return m_log;
}

bool HostTest::Until(const std::function<bool()>& reached) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!reached()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

size_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0;
    size_t resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace test
