#include "Platform/Host/HostTest.h"

#include <filesystem>
#include <future>

#include "Log/Log.h"

namespace test {

HostTest::HostTest() {
    platform::SetLogSink([this](const platform::LogLine& line) {
        std::lock_guard<std::mutex> lock(m_logMutex);
        m_log += line.text + "\n";
    });
}

HostTest::~HostTest() {
    Stop();
    platform::SetLogSink(nullptr);
}

platform::ServerOptions HostTest::Options() const {
    platform::ServerOptions options;
    options.socketPath = Path();
    return options;
}

void HostTest::Start(const std::function<void(platform::ServerOptions&)>& change) {
    platform::ServerOptions options = Options();
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

std::string HostTest::RefusalOfAnother() {
    std::string refusal;
    std::thread([&] {
        try {
            platform::Server another(app, Options());
        } catch (const std::runtime_error& error) {
            refusal = error.what();
        }
    }).join();
    return refusal;
}

std::string HostTest::LogText() {
    std::lock_guard<std::mutex> lock(m_logMutex);
    return m_log;
}

}  // namespace test
