// A server with test engines on a private socket in a temporary folder.
#ifndef TESTS_PLATFORM_HOST_HOST_TEST_H
#define TESTS_PLATFORM_HOST_HOST_TEST_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Host/TestApp.h"
#include "PlivHost/Server.h"
#include "Service/DBusClient.h"
#include "Support/Basics.h"

namespace test {

// A client with a handle.
class Session {
public:
    explicit Session(const std::string& socketPath)
        : client(std::make_unique<DBusClient>(socketPath)), handle(client->Open()) {}
    Answer Execute(const std::string& command, const std::string& arg1 = "",
                   const std::string& arg2 = "", const std::string& arg3 = "") const {
        return client->Execute(handle, command, arg1, arg2, arg3);
    }
    // Does not wait for the answer.
    void Send(const std::string& command, const std::string& arg1 = "") const {
        client->Send(handle, command, arg1);
    }
    bool IsServed() const { return Execute("echo", "on").value == "on"; }

    std::unique_ptr<DBusClient> client;
    const int handle;
};

class HostTest : public ::testing::Test {
protected:
    HostTest();
    ~HostTest() override;

    // Serves on a thread of its own from here on.
    void Start(const std::function<void(platform::ServerOptions&)>& change = nullptr);
    // Ends the service; afterwards no engine may be left.
    void Stop();
    // Starts another server at the same socket: why it does not serve, "" when it would.
    std::string RefusalOfAnother();

    std::unique_ptr<DBusClient> Connect() const { return std::make_unique<DBusClient>(Path()); }
    std::string Folder() const { return m_folder / "run"; }
    std::string Path() const { return Folder() + "/socket"; }
    std::string LogText();

    TestApp app;

private:
    platform::ServerOptions Options() const;

    const TempFolder m_folder;
    std::mutex m_logMutex;
    std::string m_log;
    platform::Server* m_server = nullptr;
    std::thread m_thread;
};

}  // namespace test

#endif
