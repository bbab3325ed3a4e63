#include "EndToEnd/Support/ServiceTest.h"

#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace test {

namespace fs = std::filesystem;

namespace {

std::string EndOf(const std::string& text) {
    constexpr size_t kShown = 20000;
    return text.size() > kShown ? text.substr(text.size() - kShown) : text;
}

}  // namespace

ServiceTest::ServiceTest() {
    char folder[] = "/tmp/cm-end-to-end-XXXXXX";
    m_folder = mkdtemp(folder);
    fs::create_directories(UsbRoot());
}

ServiceTest::~ServiceTest() {
    if (m_service) StopService();
    if (HasFailure())
        std::cerr << "---- end of the service's log\n" << EndOf(LogText()) << "----\n";
    fs::remove_all(m_folder);
}

void ServiceTest::StartService() {
    m_service = std::make_unique<Program>(
        std::vector<std::string>{CONTENTS_MGR, "--address", Address(), "--usb", "directory",
                                 "--usb-root", UsbRoot(), "--database", m_folder + "/media.db",
                                 "--log-level", "progress"},
        m_folder + "/log");
    ASSERT_TRUE(Until([&] {
        if (!m_service->IsRunning()) return true;
        try {
            Client();
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    }));
    ASSERT_TRUE(m_service->IsRunning()) << "the service ended at its start";
}

void ServiceTest::StopService() {
    EXPECT_TRUE(m_service->IsRunning()) << "the service ended by itself";
    m_service->Signal(SIGTERM);
    EXPECT_EQ(m_service->Wait(), 0);
    m_service.reset();
    EXPECT_FALSE(fs::exists(Socket()));
}

void ServiceTest::PlugIn(const std::string& name, const std::vector<std::string>& sample) {
    const std::string made = m_folder + "/making-" + name;
    std::vector<std::string> arguments{MAKE_SAMPLE_MEDIA};
    for (const auto& word : sample) arguments.push_back(word == "DIR" ? made : word);
    const Outcome outcome = RunProgram(arguments);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    fs::rename(made, UsbRoot() + "/" + name);
}

void ServiceTest::PullOut(const std::string& name) {
    fs::rename(UsbRoot() + "/" + name, m_folder + "/pulled-" + name);
}

Outcome ServiceTest::Tool(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), CONTENTSCTL);
    return RunProgram(arguments, {{"CONTENTS_MGR_ADDRESS", Address()}, {"TZ", "UTC"}});
}

bool ServiceTest::Until(const std::function<bool()>& reached) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!reached()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool ServiceTest::Shows(const std::string& path, const std::string& text) {
    return Until([&] { return ReadFile(path).find(text) != std::string::npos; });
}

Json::Value Parse(const std::string& text) {
    Json::Value value;
    const Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return {};
    return value;
}

MediaClient::MediaClient(const std::string& socket)
    : m_client(socket), m_handle(m_client.Open("media test")) {
    EXPECT_GT(m_handle, 0);
    EXPECT_EQ(Run("Connect"), "1");
}

std::string MediaClient::Run(const std::string& command, const std::string& arg1,
                             const std::string& arg2, const std::string& arg3,
                             const std::string& arg4) {
    const Answer answer = m_client.Execute(m_handle, command, arg1, arg2, arg3, arg4);
    EXPECT_EQ(answer.error, "") << command << ": " << answer.text;
    EXPECT_TRUE(answer.handled) << command;
    return answer.value;
}

Json::Value MediaClient::Storage(const std::string& name) {
    const std::string end = "/" + name;
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (std::chrono::steady_clock::now() < deadline) {
        const Json::Value answer = Parse(Run("GetStorages"));
        for (const auto& storage : answer["storages"]) {
            const std::string path = storage["mountPath"].asString();
            if (path.size() > end.size() &&
                path.compare(path.size() - end.size(), end.size(), end) == 0 &&
                !storage["id"].asString().empty())
                return storage;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    throw std::runtime_error("no storage " + name + " appears");
}

int MediaClient::Query(const std::string& storageId, const std::string& kind,
                       const std::string& folder, const std::string& sync) {
    if (Run("Query", storageId, kind, folder, sync) != "1")
        throw std::runtime_error("the query was refused");
    const auto event = m_client.Wait("QUERY_COMPLETED", std::chrono::seconds(90));
    if (!event) throw std::runtime_error("no answer to the query");
    EXPECT_EQ(event->kind, 1);
    const Json::Value payload = Parse(event->payload);
    return payload["result"].asInt() == 1 ? payload["count"].asInt() : -1;
}

Json::Value MediaClient::Fetch(int start, int count) {
    const std::string id = Run("Fetch", std::to_string(start), std::to_string(count));
    Json::Value payload;
    const auto event = m_client.Wait([&](const Event& candidate) {
        if (candidate.name != "FETCH_COMPLETED") return false;
        payload = Parse(candidate.payload);
        return payload["id"].asString() == id;
    });
    if (!event) throw std::runtime_error("no page " + id);
    EXPECT_EQ(payload["result"].asInt(), 1);
    return payload;
}

Json::Value MediaClient::FetchAll(const std::string& key, int pageSize) {
    Json::Value all(Json::arrayValue);
    for (int start = 0;; start += pageSize) {
        const Json::Value page = Fetch(start, pageSize);
        EXPECT_EQ(page["isFirstPage"].asBool(), start == 0);
        for (const auto& item : page[key]) all.append(item);
        if (page["isLastPage"].asBool() || page[key].empty()) return all;
    }
}

}  // namespace test
