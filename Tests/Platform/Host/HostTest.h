// A server with test engines on a private socket in a temporary folder.
#ifndef TESTS_PLATFORM_HOST_HOST_TEST_H
#define TESTS_PLATFORM_HOST_HOST_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "EndToEnd/Support/DBusClient.h"
#include "Platform/Host/TestApp.h"
#include "PlivHost/Server.h"

namespace test {

class HostTest : public ::testing::Test {
protected:
    HostTest();
    ~HostTest() override;

    // Serves on a thread of its own from here on.
    void Start(const std::function<void(platform::ServerOptions&)>& change = nullptr);
    // Ends the service; afterwards no engine may be left.
    void Stop();

    std::unique_ptr<DBusClient> Connect() const { return std::make_unique<DBusClient>(Path()); }
    std::string Path() const { return m_folder + "/run/socket"; }
    const std::string& Folder() const { return m_folder; }
    std::string LogText();

    // Waits until `reached`; false past the deadline.
    static bool Until(const std::function<bool()>& reached);

    TestApp app;

private:
    std::string m_folder;
    std::mutex m_logMutex;
    std::string m_log;
    platform::Server* m_server = nullptr;
    std::thread m_thread;
};

// The resident memory of this process, in bytes.
size_t ResidentBytes();

}  // namespace test

#endif
