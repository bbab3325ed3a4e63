#include "Service/MediaClient.h"

#include <stdexcept>

namespace test {
namespace {

constexpr std::chrono::seconds kEventDeadline{120};  // a query may wait for a scan

}  // namespace

Json::Value Parse(const std::string& text) {
    Json::Value value;
    const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return {};
    return value;
}

MediaClient::MediaClient(const std::string& socket)
    : m_client(socket), m_handle(m_client.Open("media test")) {
    Connect();
}

bool MediaClient::Connect() {
    return m_connected = m_client.Execute(m_handle, "Connect").value == "1";
}

std::string MediaClient::Run(const std::string& command, const std::string& arg1,
                             const std::string& arg2, const std::string& arg3,
                             const std::string& arg4) {
    const Answer answer = m_client.Execute(m_handle, command, arg1, arg2, arg3, arg4);
    if (!answer.error.empty() || !answer.handled)
        throw std::runtime_error(command + " is refused: " + answer.error + " " + answer.text);
    return answer.value;
}

Json::Value MediaClient::Storages() {
    const Json::Value answer = Parse(m_client.Execute(m_handle, "GetStorages").value);
    return answer.isObject() ? answer["storages"] : Json::Value(Json::arrayValue);
}

Json::Value MediaClient::Find(const std::string& name) {
    const std::string end = "/" + name;
    for (const auto& storage : Storages()) {
        const std::string path = storage["mountPath"].asString();
        if (path.size() > end.size() && path.substr(path.size() - end.size()) == end)
            return storage;
    }
    return {};
}

Json::Value MediaClient::Storage(const std::string& name) {
    Json::Value storage;
    if (Until([&] { return !(storage = Find(name))["id"].asString().empty(); })) return storage;
    throw std::runtime_error("no storage " + name + " appears");
}

std::string MediaClient::StorageAt(const std::filesystem::path& mountPath) {
    return Find(mountPath.filename())["id"].asString();
}

std::string MediaClient::QueryEvent(const std::string& storageId, const std::string& kind,
                                    const std::string& folder, const std::string& sync) {
    if (m_client.Execute(m_handle, "Query", storageId, kind, folder, sync).value != "1") return "";
    const auto event = m_client.Wait("QUERY_COMPLETED", kEventDeadline);
    if (event && event->kind != 1) throw std::runtime_error("an event of the wrong kind");
    return event ? event->payload : "";
}

int MediaClient::Query(const std::string& storageId, const std::string& kind,
                       const std::string& folder, const std::string& sync) {
    const Json::Value payload = Parse(QueryEvent(storageId, kind, folder, sync));
    if (!payload.isObject()) return -2;
    return payload["result"] == 1 ? payload["count"].asInt() : -1;
}

std::string MediaClient::FetchEvent(int start, int count) {
    const std::string id =
        m_client.Execute(m_handle, "Fetch", std::to_string(start), std::to_string(count)).value;
    if (id.empty() || id == "0") return "";
    const auto isOurs = [&](const Event& event) {
        return event.name == "FETCH_COMPLETED" && Parse(event.payload)["id"].asString() == id;
    };
    const auto event = m_client.Wait(isOurs, kEventDeadline);
    return event ? event->payload : "";
}

Json::Value MediaClient::Fetch(int start, int count) {
    Json::Value page = Parse(FetchEvent(start, count));
    if (page["result"] != 1) throw std::runtime_error("no page from " + std::to_string(start));
    return page;
}

Json::Value MediaClient::FetchAll(const std::string& key, int pageSize) {
    Json::Value all(Json::arrayValue);
    for (int start = 0;; start += pageSize) {
        const Json::Value page = Fetch(start, pageSize);
        if (page["isFirstPage"].asBool() != (start == 0))
            throw std::runtime_error("a page says wrongly whether it is the first");
        for (const auto& item : page[key]) all.append(item);
        if (page["isLastPage"].asBool() || page[key].empty()) return all;
    }
}

}  // namespace test
