#include "Endurance/SoakClient.h"

#include "Service/MediaClient.h"
#include "Service/RawClient.h"

namespace test {
namespace {

constexpr std::chrono::seconds kAnswerLimit{60};  // the bus client gives up then
// A query may wait for a scan that never ends for a minute, and those of one handle wait in line.
constexpr std::chrono::seconds kEventLimit{80};
constexpr std::chrono::seconds kQuiet{2};
constexpr size_t kOwedAtMost = 10;

std::string ListText(const char* key, const Texts& texts) {
    Json::Value root;
    for (const auto& text : texts) root[key].append(text);
    return Json::FastWriter().write(root);
}

}  // namespace

void SoakClient::Run() {
    Join();
    while (!m_known.stop && m_client) {
        (this->*Choose())();
        TakeEvents();
        if (Owed() >= kOwedAtMost) Settle();
    }
    Leave();
}

SoakClient::Action SoakClient::Choose() {
    static const struct {
        int weight;
        Action action;
    } kActions[] = {
        {25, &SoakClient::QueryMedia},  {5, &SoakClient::QueryFolder},
        {30, &SoakClient::FetchPage},   {16, &SoakClient::Ask},
        {6, &SoakClient::RegisterSome}, {4, &SoakClient::RemoveSome},
        {1, &SoakClient::Reconnect},    {1, &SoakClient::CloseRudely},
        {1, &SoakClient::LeaveAndJoin},
    };
    int draw = Number(100);
    for (const auto& entry : kActions)
        if ((draw -= entry.weight) < 0) return entry.action;
    return &SoakClient::Settle;
}

// ---- coming and going -------------------------------------------------------------------------

void SoakClient::Join() {
    try {
        m_client = std::make_unique<DBusClient>(m_known.socket);
    } catch (const std::runtime_error& error) {
        return m_known.ledger.Wrong(std::string("no connection: ") + error.what());
    }
    m_handle = m_client->Open("soak");
    m_owed.clear();
    m_pages.clear();
    if (Command({"Connect"}) != 1) m_known.ledger.Wrong("Connect failed");
}

// What is owed comes first, and nothing after "Disconnect".
void SoakClient::Leave() {
    if (!m_client) return;
    WaitForOwed();
    if (Command({"Disconnect"}) != 1) m_known.ledger.Wrong("Disconnect failed");
    const std::string error = m_client->Close(m_handle);
    if (!error.empty()) m_known.ledger.Wrong("Close: " + error);
    TakeEvents();
    m_client.reset();
}

void SoakClient::LeaveAndJoin() {
    Leave();
    Join();
}

void SoakClient::Reconnect() {
    for (const char* command : {"Disconnect", "Connect"})
        if (Command({command}) != 1) m_known.ledger.Wrong(std::string(command) + " failed");
}

// With whatever is under way: its events are lost, and the service must not mind.
void SoakClient::CloseRudely() {
    if (Number(2) == 0) m_client->Close(m_handle);
    m_known.ledger.Done("client left rudely");
    m_client.reset();
    Join();
}

// ---- commands ---------------------------------------------------------------------------------

int SoakClient::Command(const Texts& words, const char* event) {
    Texts all = words;
    all.resize(5);
    const auto begin = Clock::now();
    const Answer answer = m_client->Execute(m_handle, all[0], all[1], all[2], all[3], all[4]);
    const auto took = Clock::now() - begin;
    const std::string& name = words[0];
    m_known.ledger.Done(name, took);
    const bool accepted = answer.error.empty() && answer.handled && answer.value != "0";
    if (took >= kAnswerLimit || answer.error == "local")
        m_known.ledger.Wrong(name + " was not answered: " + answer.text);
    else if (!accepted)
        m_known.ledger.Refused(name + " " + answer.error + (answer.handled ? " answered 0" : ""));
    if (accepted && event) ++m_owed[event];
    return accepted ? atoi(answer.value.c_str()) : 0;
}

void SoakClient::QueryMedia() {
    const std::string storage = Number(50) == 0 ? "no-such-storage" : OneOf(m_known.storages);
    Command({"Query", storage, OneOf({"photo", "music", "video"}), "",
             Number(10) == 0 ? "true" : "false"},
            "QUERY_COMPLETED");
}

void SoakClient::QueryFolder() {
    Command({"Query", OneOf(m_known.storages), "folder", OneOf(m_known.folders)},
            "QUERY_COMPLETED");
}

void SoakClient::FetchPage() {
    const int count = Number(10) == 0 ? 1000 : 1 + Number(60);
    const int page = Command({"Fetch", std::to_string(Number(60)), std::to_string(count)});
    if (page > 0 && !m_pages.insert(std::to_string(page)).second)
        m_known.ledger.Wrong("one id for two pages");
}

void SoakClient::Ask() {
    const int which = Number(10);
    if (which == 0)
        Command({"SubscribeEvent", "[1]"});  // an error
    else if (which < 4)
        Command({"GetStorages"});
    else
        Command({"GetCount", std::to_string(Number(12))});
}

void SoakClient::RegisterSome() {
    Texts paths;
    for (int i = 1 + Number(5); i > 0; --i) paths.push_back(OneOf(m_known.files));
    if (Number(4) == 0) paths.push_back("$USB_DIR/NOWHERE/no.jpg");
    Command({"RegisterContents", "any", ListText("fullpaths", paths)},
            "CONTETNS_REGISTER_COMPLETED");
}

void SoakClient::RemoveSome() {
    Texts ids = {"no-such-id"};
    for (int i = Number(3); i > 0 && !m_mediaIds.empty(); --i) ids.push_back(OneOf(m_mediaIds));
    Command({"UnregisterContents", "any", ListText("ids", ids)}, "CONTENTS_UNREGISTER_COMPLETED");
}

// ---- events -----------------------------------------------------------------------------------

size_t SoakClient::Owed() const {
    size_t owed = m_pages.size();
    for (const auto& [name, times] : m_owed) owed += static_cast<size_t>(times);
    return owed;
}

void SoakClient::Settle() {
    WaitForOwed();
}

// At the run's end, until the rest is nothing but waits for scans.
void SoakClient::WaitForOwed() {
    TakeEvents();
    auto lastOfOurs = Clock::now();
    while (Owed() > 0 && !(m_known.stop && Clock::now() - lastOfOurs > kQuiet)) {
        const size_t before = Owed();
        const auto event =
            m_client->Wait([](const Event&) { return true; }, std::chrono::seconds(1));
        if (event) Take(*event);
        if (Owed() != before) lastOfOurs = Clock::now();
        if (!m_client->IsConnected())
            return m_known.ledger.Wrong("the service closed a connection");
        if (Clock::now() - lastOfOurs < kEventLimit) continue;
        for (const auto& [name, times] : m_owed)
            if (times > 0) m_known.ledger.Wrong(std::to_string(times) + " missing: " + name);
        if (!m_pages.empty()) m_known.ledger.Wrong("a page is missing: " + *m_pages.begin());
        m_owed.clear();
        m_pages.clear();
    }
}

void SoakClient::TakeEvents() {
    for (const Event& event : m_client ? m_client->TakeAll() : std::vector<Event>()) Take(event);
}

void SoakClient::Take(const Event& event) {
    m_known.ledger.Done("event " + event.name);
    if (event.handle != m_handle)
        return m_known.ledger.Wrong("an event of a handle of somebody else");
    if (event.name == "FETCH_COMPLETED") return TakePage(event.payload);
    const auto owed = m_owed.find(event.name);
    if (event.name.find("_COMPLETED") == std::string::npos || event.name == "SYNC_COMPLETED")
        return;
    if (owed == m_owed.end() || owed->second-- == 0)
        m_known.ledger.Wrong(event.name + " that nobody asked for");
    else if (!Parse(event.payload).isObject())
        m_known.ledger.Wrong("no JSON in " + event.name);
}

void SoakClient::TakePage(const std::string& payload) {
    const Json::Value page = Parse(payload);
    if (!page.isObject() || m_pages.erase(page["id"].asString()) == 0)
        return m_known.ledger.Wrong("a page that nobody asked for, or twice");
    for (const char* key : {"photos", "music", "videos", "files"}) {
        const Json::Value& items = page[key];
        std::set<std::string> ids;
        for (const Json::Value& item : items) ids.insert(item["id"].asString());
        if (ids.size() != items.size()) m_known.ledger.Wrong("a page repeats an item");
        if (items.size() > 1000) m_known.ledger.Wrong("a page of more than 1,000 items");
        if (items.size() > 0) m_mediaIds.push_back(items[0]["id"].asString());
    }
    const size_t kept = 50;
    if (m_mediaIds.size() > kept) m_mediaIds.erase(m_mediaIds.begin());
}

// ---- clients that end badly -------------------------------------------------------------------

int RunVictim(const std::string& socket, const std::string&) {
    Random random(std::random_device{}());
    DBusClient client(socket);
    const int handle = client.Open("victim");
    client.Execute(handle, "Connect");
    const Texts commands = {"GetStorages", "GetCount", "Disconnect", "Connect", "StartSync"};
    for (;;) client.Send(handle, commands[random() % commands.size()], "2");
}

int RunGreedy(const std::string& socket, const std::string& storage) {
    DBusClient client(socket);
    const int handle = client.Open("greedy");
    client.Execute(handle, "Connect");
    const std::string large(1 << 20, 'g');
    for (;;) {
        client.Execute(handle, "Query", storage, "folder", "$USB_DIR/" + large, "true");
        client.Execute(handle, "RegisterContents", "", "{\"fullpaths\":[\"" + large + "\"]}");
    }
}

int RunSlowReader(const std::string& socket, const std::string& storage) {
    RawClient client(socket);
    if (!client.Authenticate()) return 1;
    const int handle = client.Open();
    client.Execute(handle, "Connect");
    client.Execute(handle, "Query", storage.c_str(), "photo", "", "false");
    for (;;) client.Execute(handle, "Fetch", "0", "1000");
}

}  // namespace test
