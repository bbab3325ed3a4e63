// The real process on a private socket, with a USB root in a temporary tree.
#ifndef TESTS_END_TO_END_SUPPORT_SERVICE_TEST_H
#define TESTS_END_TO_END_SUPPORT_SERVICE_TEST_H

#include <gtest/gtest.h>
#include <json/json.h>

#include <functional>
#include <memory>
#include <string>

#include "EndToEnd/Support/DBusClient.h"
#include "EndToEnd/Support/Programs.h"

namespace test {

// The test's end stops the process with SIGTERM and expects exit status 0; when the test failed,
// the process's log is printed.
class ServiceTest : public ::testing::Test {
protected:
    ServiceTest();
    ~ServiceTest() override;

    // Starts the process and waits until it takes connections.
    void StartService();
    // Ends it as an administrator would, and expects that it ends well.
    void StopService();
    Program& Service() { return *m_service; }

    std::string Socket() const { return m_folder + "/run/socket"; }
    std::string Address() const { return "unix:path=" + Socket(); }
    std::string UsbRoot() const { return m_folder + "/opt/storage/usb"; }
    const std::string& Folder() const { return m_folder; }
    std::string LogText() const { return ReadFile(m_folder + "/log"); }

    // Plugs in a stick of that name that holds what make-sample-media makes with these arguments,
    // in one step.
    void PlugIn(const std::string& name, const std::vector<std::string>& sample);
    void PullOut(const std::string& name);

    std::unique_ptr<DBusClient> Client() const { return std::make_unique<DBusClient>(Socket()); }
    Outcome Tool(std::vector<std::string> arguments) const;  // contentsctl at our address

    static bool Until(const std::function<bool()>& reached);
    // Waits until the file holds the text.
    static bool Shows(const std::string& path, const std::string& text);

private:
    std::string m_folder;
    std::unique_ptr<Program> m_service;
};

Json::Value Parse(const std::string& text);  // null for no JSON

// An engine that is connected, and the main commands as functions. What makes going on senseless
// is thrown and so ends the test.
class MediaClient {
public:
    explicit MediaClient(const std::string& socket);

    DBusClient& Raw() { return m_client; }
    int Handle() const { return m_handle; }
    std::string Run(const std::string& command, const std::string& arg1 = "",
                    const std::string& arg2 = "", const std::string& arg3 = "",
                    const std::string& arg4 = "");

    // The storage whose mount path ends in "/NAME", waited for until its id is known.
    Json::Value Storage(const std::string& name);
    // Registers a query, waits for the scan and the answer: the count, or -1.
    int Query(const std::string& storageId, const std::string& kind, const std::string& folder = "",
              const std::string& sync = "true");
    // One page's payload.
    Json::Value Fetch(int start, int count);
    // All items of the query that was just registered, in pages of that size.
    Json::Value FetchAll(const std::string& key, int pageSize);

private:
    DBusClient m_client;
    int m_handle;
};

}  // namespace test

#endif
