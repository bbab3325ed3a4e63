// The real process on a private socket, with a USB root in a temporary tree.
#ifndef TESTS_SERVICE_SERVICE_TEST_H
#define TESTS_SERVICE_SERVICE_TEST_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Service/MediaClient.h"
#include "Service/ServiceProcess.h"
#include "Service/Sticks.h"

namespace test {

// The service, if any is left at the test's end, must be there and end well. When the test failed,
// its log is printed.
class ServiceTest : public ::testing::Test {
protected:
    ServiceTest() : m_sticks(m_scratch.Path()) {}
    ~ServiceTest() override;

    ServiceOptions Options() const;
    // Starts the process and waits until it takes connections.
    void StartService() { StartService(Options()); }
    void StartService(const ServiceOptions& options);
    // Ends it as an administrator would, and expects that it ends well.
    void StopService();

    std::string Socket() const { return m_scratch / "run/socket"; }
    std::string Address() const { return "unix:path=" + Socket(); }
    std::string UsbRoot() const { return m_sticks.Root(); }
    const std::string& Folder() const { return m_scratch.Path(); }
    std::string LogText() const { return ReadFile(m_scratch / "service.log"); }
    // How often the log tells so.
    size_t Told(const std::string& text) const;

    std::unique_ptr<DBusClient> Client() const { return std::make_unique<DBusClient>(Socket()); }

    TempFolder m_scratch;
    Sticks m_sticks;
    std::unique_ptr<ServiceProcess> m_service;
};

}  // namespace test

#endif
