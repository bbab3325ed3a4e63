// The real service with something of its world broken on purpose.
#ifndef TESTS_ENDURANCE_FAULTS_FAULT_TEST_H
#define TESTS_ENDURANCE_FAULTS_FAULT_TEST_H

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "Endurance/Support/ServiceProcess.h"
#include "Endurance/Support/Sticks.h"

namespace endurance {

// A file system of the test's own, seen by it and by the processes it starts; unmounted with the
// object. What fails throws std::runtime_error.
class OwnMount {
public:
    OwnMount(const std::string& command, std::filesystem::path at);
    ~OwnMount();
    OwnMount(const OwnMount&) = delete;
    OwnMount& operator=(const OwnMount&) = delete;

private:
    std::filesystem::path m_at;
};

// False where the user may not mount; the test is then skipped, visibly.
bool MayMount();
void RunCommand(const std::string& command);  // throws when it fails

// One client with one handle, connected unless "Connect" said no.
class Visitor {
public:
    explicit Visitor(const ServiceProcess& service);
    bool IsConnected() const { return m_connected; }
    bool Connect();

    // The id under which the stick at `mountPath` is known; empty when it is not.
    std::string StorageAt(const std::filesystem::path& mountPath);
    // The payload of the query's event; empty when none came.
    std::string Query(const std::string& storage, const std::string& kind = "photo",
                      const std::string& sync = "true");
    // The photos, once the scan is over; -1 when the query fails, -2 when nothing answers.
    int CountPhotos(const std::string& storage);
    // The payload of the page's event; empty when it was refused or none came.
    std::string Fetch(int start, int count);

    test::DBusClient& Client() { return *m_client; }
    int Handle() const { return m_handle; }

private:
    std::unique_ptr<test::DBusClient> m_client;
    int m_handle = -1;
    bool m_connected = false;
};

class FaultTest : public testing::Test {
protected:
    FaultTest();
    void TearDown() override;  // the service, if any, must still be there and end well

    // A stick with `count` photos.
    std::filesystem::path AddPhotos(const std::string& name, int count);
    ServiceOptions Options() const;
    void Start() { Start(Options()); }
    void Start(const ServiceOptions& options);
    // What a new client counts on the stick.
    int CountOn(const std::filesystem::path& stick);

    ScratchFolder m_scratch;
    Sticks m_sticks;
    std::unique_ptr<ServiceProcess> m_service;
};

}  // namespace endurance

#endif
