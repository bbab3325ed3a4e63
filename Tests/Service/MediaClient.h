// A client as media players are: an engine, and the main commands as functions.
#ifndef TESTS_SERVICE_MEDIA_CLIENT_H
#define TESTS_SERVICE_MEDIA_CLIENT_H

#include <json/json.h>

#include <filesystem>
#include <string>

#include "Service/DBusClient.h"

namespace test {

Json::Value Parse(const std::string& text);  // null for no JSON

// One thread. Where nothing else is said, a refusal and a missing event are thrown as
// std::runtime_error, and so end the test.
class MediaClient {
public:
    // Opens an engine and sends "Connect"; whether that was granted is in IsConnected().
    explicit MediaClient(const std::string& socket);
    bool IsConnected() const { return m_connected; }
    bool Connect();

    DBusClient& Raw() { return m_client; }
    int Handle() const { return m_handle; }
    // The command's value; an error and a command that is not handled are thrown.
    std::string Run(const std::string& command, const std::string& arg1 = "",
                    const std::string& arg2 = "", const std::string& arg3 = "",
                    const std::string& arg4 = "");

    // The answer to "GetStorages", empty when it is refused.
    Json::Value Storages();
    // The storage whose mount path ends in "/NAME", waited for until its id is known.
    Json::Value Storage(const std::string& name);
    // The id under which the stick at that path is known now; empty when it is not.
    std::string StorageAt(const std::filesystem::path& mountPath);

    // The payload of the query's event; empty when it was refused or none came.
    std::string QueryEvent(const std::string& storageId, const std::string& kind = "photo",
                           const std::string& folder = "", const std::string& sync = "true");
    // Its count, once the scan is over; -1 when the query fails, -2 when nothing answers.
    int Query(const std::string& storageId, const std::string& kind = "photo",
              const std::string& folder = "", const std::string& sync = "true");

    // The payload of the page's event; empty when it was refused or none came.
    std::string FetchEvent(int start, int count);
    Json::Value Fetch(int start, int count);
    // All items of the query that was just registered, in pages of that size.
    Json::Value FetchAll(const std::string& key, int pageSize);

private:
    Json::Value Find(const std::string& name);

    DBusClient m_client;
    int m_handle;
    bool m_connected = false;
};

}  // namespace test

#endif
