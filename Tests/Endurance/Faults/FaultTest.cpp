#include "Endurance/Faults/FaultTest.h"

#include <json/json.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <stdexcept>

namespace endurance {

namespace fs = std::filesystem;

OwnMount::OwnMount(const std::string& command, fs::path at) : m_at(std::move(at)) {
    fs::create_directories(m_at);
    RunCommand(command + " '" + m_at.string() + "'");
}

OwnMount::~OwnMount() {
    umount2(m_at.c_str(), MNT_DETACH);
}

bool MayMount() {
    static const bool may = geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
                            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return may;
}

void RunCommand(const std::string& command) {
    if (system((command + " >&2").c_str()) != 0) throw std::runtime_error("failed: " + command);
}

// ---- a client ---------------------------------------------------------------------------------

Visitor::Visitor(const ServiceProcess& service) : m_client(service.NewClient()) {
    m_handle = m_client->Open("visitor");
    Connect();
}

bool Visitor::Connect() {
    m_connected = m_client->Execute(m_handle, "Connect").value == "1";
    return m_connected;
}

std::string Visitor::StorageAt(const fs::path& mountPath) {
    Json::Value root;
    const std::string text = m_client->Execute(m_handle, "GetStorages").value;
    if (!Json::Reader().parse(text, root) || !root.isObject()) return "";
    const std::string name = "/" + mountPath.filename().string();
    for (const auto& storage : root["storages"]) {
        const std::string path = storage["mountPath"].asString();
        if (path.size() > name.size() && path.substr(path.size() - name.size()) == name)
            return storage["id"].asString();
    }
    return "";
}

std::string Visitor::Query(const std::string& storage, const std::string& kind,
                           const std::string& sync) {
    const auto answer = m_client->Execute(m_handle, "Query", storage, kind, "", sync);
    if (answer.value != "1") return "";
    const auto event = m_client->Wait("QUERY_COMPLETED", std::chrono::seconds(120));
    return event ? event->payload : "";
}

int Visitor::CountPhotos(const std::string& storage) {
    Json::Value payload;
    if (!Json::Reader().parse(Query(storage), payload)) return -2;
    return payload["result"] == 1 ? payload["count"].asInt() : -1;
}

std::string Visitor::Fetch(int start, int count) {
    const auto answer =
        m_client->Execute(m_handle, "Fetch", std::to_string(start), std::to_string(count));
    if (!answer.error.empty() || answer.value == "0") return "";
    const auto event = m_client->Wait("FETCH_COMPLETED", std::chrono::seconds(120));
    return event ? event->payload : "";
}

// ---- the fixture ------------------------------------------------------------------------------

FaultTest::FaultTest() : m_sticks(m_scratch.Path()) {}

void FaultTest::TearDown() {
    if (!m_service) return;
    EXPECT_TRUE(m_service->IsRunning()) << m_service->Log();
    const auto status = m_service->Stop();
    ASSERT_TRUE(status) << "the service does not end: " << m_service->Log();
    EXPECT_EQ(*status, 0) << m_service->Log();
    if (HasFailure() || getenv("ENDURANCE_LOG")) std::cerr << m_service->Log();
}

fs::path FaultTest::AddPhotos(const std::string& name, int count) {
    fs::create_directories("fault-samples");  // kept: every test wants some
    const fs::path samples = "fault-samples/photos-" + std::to_string(count);
    MakeSamples("--photos", samples, std::to_string(count - 1));  // and a broken one by itself
    return m_sticks.Add(name, samples);
}

ServiceOptions FaultTest::Options() const {
    ServiceOptions options;
    options.folder = m_scratch.Path();
    options.usbRoot = m_sticks.Root();
    return options;
}

void FaultTest::Start(const ServiceOptions& options) {
    m_service = std::make_unique<ServiceProcess>(options);
    ASSERT_TRUE(m_service->WaitUntilServing()) << m_service->Log();
}

int FaultTest::CountOn(const fs::path& stick) {
    Visitor visitor(*m_service);
    return visitor.CountPhotos(visitor.StorageAt(stick));
}

}  // namespace endurance
