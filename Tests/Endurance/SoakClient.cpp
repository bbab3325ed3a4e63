#include "Endurance/SoakClient.h"

#include <json/json.h>

#include "Service/RawClient.h"

namespace test {
namespace {

constexpr std::chrono::seconds kAnswerLimit{60};  // the bus client gives up then
// A query may wait for a scan that never ends for a minute, and those of one handle wait in line.
constexpr std::chrono::seconds kEventLimit{80};
constexpr long kOwedAtMost = 10;

const std::vector<std::string> kKinds = {"photo", "music", "video"};

std::string ListText(const char* key, const std::vector<std::string>& texts) {
    Json::Value root;
    for (const auto& text : texts) root[key].append(text);
    return Json::FastWriter().write(root);
}

}  // namespace

SoakClient::SoakClient(SoakWorld& world, unsigned long seed)
    : m_world(world), m_ledger(world.ledger), m_random(seed) {}

int SoakClient::Number(int below) {
    return std::uniform_int_distribution<int>(0, below - 1)(m_random);
}

const std::string& SoakClient::OneOf(const std::vector<std::string>& texts) {
    return texts[static_cast<size_t>(Number(static_cast<int>(texts.size())))];
}

void SoakClient::Run() {
    Join();
    while (!m_world.stop && m_client) {
        (this->*Choose())();
        TakeEvents();
        const long owed = m_accepted.queries - m_completed.queries + m_accepted.registrations -
                          m_completed.registrations + m_accepted.removals - m_completed.removals +
                          static_cast<long>(m_pages.size() - m_pagesSeen.size());
        if (owed >= kOwedAtMost) Settle();
    }
    Leave();
}

SoakClient::Action SoakClient::Choose() {
    static const struct {
        int weight;
        Action action;
    } kActions[] = {
        {25, &SoakClient::QueryMedia},  {5, &SoakClient::QueryFolder},
        {30, &SoakClient::FetchPage},   {10, &SoakClient::AskCount},
        {3, &SoakClient::AskStorages},  {6, &SoakClient::RegisterSome},
        {4, &SoakClient::RemoveSome},   {8, &SoakClient::Nonsense},
        {1, &SoakClient::Reconnect},    {1, &SoakClient::CloseRudely},
        {1, &SoakClient::LeaveAndJoin}, {6, &SoakClient::Settle},
    };
    int draw = Number(100);
    for (const auto& entry : kActions)
        if ((draw -= entry.weight) < 0) return entry.action;
    return &SoakClient::Settle;
}

// ---- coming and going -------------------------------------------------------------------------

void SoakClient::Join() {
    try {
        m_client = std::make_unique<DBusClient>(m_world.socket);
    } catch (const std::runtime_error& error) {
        m_ledger.Wrong(std::string("no connection: ") + error.what());
        return;
    }
    m_handle = m_client->Open("soak");
    if (m_handle < 0) return m_ledger.Wrong("no handle");
    m_accepted = m_completed = {};
    m_pages.clear();
    m_pagesSeen.clear();
    m_connected = Command("Connect") == 1;
    if (!m_connected) m_ledger.Wrong("Connect failed");
}

// What is owed comes first, and nothing after "Disconnect".
void SoakClient::Leave() {
    if (!m_client) return;
    WaitForOwed([this] { return IsSettled(); });
    if (m_connected && Command("Disconnect") != 1) m_ledger.Wrong("Disconnect failed");
    m_connected = false;
    const std::string error = m_client->Close(m_handle);
    if (!error.empty()) m_ledger.Wrong("Close: " + error);
    TakeEvents();
    if (!IsSettled()) m_ledger.Wrong("events that nobody asked for");
    m_client.reset();
}

void SoakClient::LeaveAndJoin() {
    Leave();
    Join();
}

void SoakClient::Reconnect() {
    if (Command("Disconnect") != 1) m_ledger.Wrong("Disconnect failed");
    if (Command("Connect") != 1) m_ledger.Wrong("Connect failed");
}

// With whatever is under way: its events are lost, and the service must not mind.
void SoakClient::CloseRudely() {
    if (Number(2) == 0) m_client->Close(m_handle);
    m_ledger.Done("client left rudely");
    m_client.reset();
    Join();
}

// ---- commands ---------------------------------------------------------------------------------

int SoakClient::Command(const std::string& name, const std::string& arg1, const std::string& arg2,
                        const std::string& arg3, const std::string& arg4) {
    const auto begin = Clock::now();
    const Answer answer = m_client->Execute(m_handle, name, arg1, arg2, arg3, arg4);
    const auto took = Clock::now() - begin;
    m_ledger.Done(name, took);
    if (took >= kAnswerLimit || answer.error == "local")
        m_ledger.Wrong(name + " was not answered: " + answer.text);
    else if (!answer.error.empty())
        m_ledger.Refused(name + " " + answer.error);
    else if (!answer.handled)
        m_ledger.Refused(name + " not handled");
    else if (answer.value == "0")
        m_ledger.Refused(name + " answered 0");
    return answer.error.empty() && answer.handled ? atoi(answer.value.c_str()) : 0;
}

void SoakClient::QueryMedia() {
    const std::string storage = Number(50) == 0 ? "no-such-storage" : OneOf(m_world.storages);
    const std::string sync = Number(10) == 0 ? "true" : "false";
    if (Command("Query", storage, OneOf(kKinds), "", sync) == 1) ++m_accepted.queries;
}

void SoakClient::QueryFolder() {
    if (Command("Query", OneOf(m_world.storages), "folder", OneOf(m_world.folders), "") == 1)
        ++m_accepted.queries;
}

void SoakClient::FetchPage() {
    const int count = Number(10) == 0 ? 1000 : 1 + Number(60);
    const int page = Command("Fetch", std::to_string(Number(60)), std::to_string(count));
    if (page > 0 && !m_pages.insert(page).second) m_ledger.Wrong("one id for two pages");
}

void SoakClient::AskCount() {
    Command("GetCount", std::to_string(Number(12)));
}

void SoakClient::AskStorages() {
    Command("GetStorages");
}

void SoakClient::RegisterSome() {
    std::vector<std::string> paths;
    for (int i = 1 + Number(5); i > 0; --i) paths.push_back(OneOf(m_world.files));
    if (Number(4) == 0) paths.push_back("$USB_DIR/NOWHERE/no.jpg");
    if (Command("RegisterContents", "any", ListText("fullpaths", paths)) > 0)
        ++m_accepted.registrations;
}

void SoakClient::RemoveSome() {
    std::vector<std::string> ids = {"no-such-id"};
    for (int i = Number(3); i > 0 && !m_mediaIds.empty(); --i) ids.push_back(OneOf(m_mediaIds));
    if (Command("UnregisterContents", "any", ListText("ids", ids)) > 0) ++m_accepted.removals;
}

void SoakClient::Nonsense() {
    static const std::vector<std::vector<std::string>> kCommands = {
        {"connect"},
        {"Query", "x", "photos"},
        {"Query", "", "photo"},
        {"Fetch", "none", "many"},
        {"Fetch", "2000000000", "1000"},
        {"Fetch", "-1", "1001"},
        {"GetCount", "99999999999999999999"},
        {"SubscribeEvent", "{\"ids\":[\"a\"]}"},
        {"SubscribeEvent", "{"},
        {"SubscribeEvent", "[1]"},
        {"RegisterContents", "", "[[["},
        {"UnregisterContents", "", "{\"ids\":{\"a\":[]}}"},
        {"StartSync"},
        {"GetSyncState"},
    };
    std::vector<std::string> words =
        kCommands[static_cast<size_t>(Number(static_cast<int>(kCommands.size())))];
    words.resize(5);
    Command(words[0], words[1], words[2], words[3], words[4]);
}

// ---- events -----------------------------------------------------------------------------------

bool SoakClient::IsSettled() const {
    return !(m_accepted != m_completed) && m_pages == m_pagesSeen;
}

void SoakClient::Settle() {
    WaitForOwed([this] { return IsSettled() || m_world.stop; });
}

// Waits for what is owed, until `enough`.
void SoakClient::WaitForOwed(const std::function<bool()>& enough) {
    TakeEvents();
    auto lastOfOurs = Clock::now();
    while (!enough()) {
        const auto before = m_completed;
        const size_t pagesBefore = m_pagesSeen.size();
        const auto event =
            m_client->Wait([](const Event&) { return true; }, std::chrono::seconds(1));
        if (event) Take(*event);
        if (m_completed != before || m_pagesSeen.size() != pagesBefore) lastOfOurs = Clock::now();
        if (!m_client->IsConnected()) return m_ledger.Wrong("the service closed a connection");
        if (Clock::now() - lastOfOurs > kEventLimit) return ReportMissing();
    }
}

void SoakClient::ReportMissing() {
    m_ledger.Wrong("missing events: queries " +
                   std::to_string(m_accepted.queries - m_completed.queries) + ", registrations " +
                   std::to_string(m_accepted.registrations - m_completed.registrations) +
                   ", removals " + std::to_string(m_accepted.removals - m_completed.removals) +
                   ", pages " + std::to_string(m_pages.size()) + " asked for and " +
                   std::to_string(m_pagesSeen.size()) + " seen");
    m_completed = m_accepted;
    m_pagesSeen = m_pages;
}

void SoakClient::TakeEvents() {
    if (!m_client) return;
    for (const Event& event : m_client->TakeAll()) Take(event);
}

void SoakClient::Take(const Event& event) {
    m_ledger.Done("event " + event.name);
    if (event.handle != m_handle) return m_ledger.Wrong("an event of a handle of somebody else");
    Json::Value payload;
    const bool isText = event.name.compare(0, 4, "SYNC") == 0;
    if (!isText && !Json::Reader().parse(event.payload, payload))
        return m_ledger.Wrong("no JSON in " + event.name);
    if (event.name == "QUERY_COMPLETED") {
        ++m_completed.queries;
        if (payload["result"] != 1)
            m_ledger.Refused("QUERY_COMPLETED result " + payload["result"].asString());
    } else if (event.name == "CONTETNS_REGISTER_COMPLETED") {
        ++m_completed.registrations;
    } else if (event.name == "CONTENTS_UNREGISTER_COMPLETED") {
        ++m_completed.removals;
    } else if (event.name == "FETCH_COMPLETED") {
        TakePage(payload);
    }
}

void SoakClient::TakePage(const Json::Value& page) {
    if (!m_pagesSeen.insert(page["id"].asInt()).second) m_ledger.Wrong("one page sent twice");
    for (const char* key : {"photos", "music", "videos", "files"}) {
        const Json::Value& items = page[key];
        if (items.size() > 1000) m_ledger.Wrong("a page of more than 1,000 items");
        if (items.size() > 0) m_mediaIds.push_back(items[0]["id"].asString());
    }
    const size_t kept = 50;
    if (m_mediaIds.size() > kept) m_mediaIds.erase(m_mediaIds.begin());
}

// ---- clients that end badly -------------------------------------------------------------------

int RunVictim(const std::string& socket, const std::string&) {
    std::mt19937_64 random(std::random_device{}());
    DBusClient client(socket);
    const int handle = client.Open("victim");
    client.Execute(handle, "Connect");
    const std::vector<std::string> commands = {"GetStorages", "GetCount", "Disconnect", "Connect",
                                               "StartSync"};
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
    client.Call("Open", g_variant_new("(s)", "slow"));
    const int handle = client.ReadHandle();
    const auto send = [&](const char* command, const char* arg1, const char* arg2) {
        client.Call("Execute", g_variant_new("(isssss)", handle, command, arg1, arg2, "", "false"));
    };
    send("Connect", "", "");
    send("Query", storage.c_str(), "photo");
    for (;;) send("Fetch", "0", "1000");
}

}  // namespace test
