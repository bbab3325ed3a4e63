// The programs that people and scripts use: the command line of the service, contentsctl, gdbus.
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "Service/ServiceTest.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

std::vector<Json::Value> JsonLines(const std::string& text) {
    std::vector<Json::Value> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(Parse(line));
    return lines;
}

class ToolsTest : public ServiceTest {
protected:
    Outcome Tool(Words arguments) const {  // contentsctl at our address
        arguments.insert(arguments.begin(), CONTENTSCTL);
        return RunProgram(arguments, {{"CONTENTS_MGR_ADDRESS", Address()}, {"TZ", "UTC"}});
    }
};

TEST_F(ToolsTest, BothTellTheirUsageAndTheVersionAndNothingElse) {
    for (const char* program : {SERVICE_PROGRAM, CONTENTSCTL})
        for (const char* option : {"--help", "--version"}) {
            const Outcome told = RunProgram({program, option});
            EXPECT_EQ(told.status, 0);
            EXPECT_EQ(told.errors, "");
            EXPECT_NE(told.output.find(*(option + 2) == 'h' ? "Usage:" : " " CM_VERSION "\n"),
                      std::string::npos)
                << told.output;
        }
}

// As the unit runs the service: a stick that comes, is scanned and goes, with a client listening.
TEST_F(ToolsTest, TheJournalHasAStickInAFewLines) {
    std::ofstream(Folder() + "/service.log").flush();
    struct stat log {};
    ASSERT_EQ(stat((Folder() + "/service.log").c_str(), &log), 0);
    ServiceOptions options = Options();
    options.logLevel = "info";
    options.environment = {
        {"JOURNAL_STREAM", std::to_string(log.st_dev) + ":" + std::to_string(log.st_ino)}};
    StartService(options);
    MediaClient client(Socket());
    m_sticks.Make("stick", "--photos", 5);
    ASSERT_TRUE(m_service->WaitForLog("is complete: 6 media files, 6 of them read, "));
    m_sticks.PullOut("stick");
    ASSERT_TRUE(m_service->WaitForLog("is gone"));
    size_t lines = 0;
    std::istringstream stream(LogText());
    for (std::string line; std::getline(stream, line); ++lines)
        EXPECT_TRUE(line.rfind("<6>MEDIA_CONTENT: ", 0) == 0 ||
                    line.rfind("<6>PLIV_HOST: ", 0) == 0)
            << line;
    EXPECT_LT(lines, 20u);
    EXPECT_EQ(Told("storage \"stick\" (folder) is mounted at " + UsbRoot() + "/stick"), 1u);
}

TEST_F(ToolsTest, TheToolTellsWhatWasWrong) {
    const auto fails = [this](int status, const Words& words, const char* text) {
        const Outcome outcome = Tool(words);
        EXPECT_EQ(outcome.status, status) << text;
        EXPECT_NE(outcome.errors.find(text), std::string::npos) << outcome.errors;
    };
    fails(2, {}, "--help");
    fails(2, {"fly"}, "fly");
    fails(2, {"query", "stick"}, "query STORAGE KIND");
    fails(2, {"--limit", "many", "query", "a", "photo"}, "many");
    fails(2, {"--wait", "X", "storages"}, "run");
    fails(2, {"--bus", "omni", "storages"}, "omni");
    fails(2, {"--address", "nonsense", "storages"}, "unix:path=");
    fails(2, {"storages"}, "Start contents-mgr");
    EXPECT_EQ(Tool({"--help"}).status, 0);
    StartService();
    fails(1, {"run", "getstorages"}, "case-sensitive");
    fails(1, {"query", "nobody", "photo"}, "contentsctl storages");
    fails(1, {"browse", "/nowhere"}, "lies in none");
    fails(1, {"register", "/etc/hostname"}, "inside a mounted storage");
    fails(1, {"unregister", "no-such-id"}, "no-such-id");
    fails(0, {"storages"}, "No storage");
}

TEST_F(ToolsTest, TheToolRunsBareCommands) {
    StartService();
    EXPECT_EQ(Tool({"run", "GetStorages"}).output, "{\"storages\":[]}\n");
    EXPECT_EQ(Parse(Tool({"--json", "run", "Connect"}).output)["returnValue"], "1");
    const Outcome refused = Tool({"--wait", "FETCH_COMPLETED", "run", "Fetch", "a", "b"});
    EXPECT_EQ(refused.status, 1) << "an event was waited for that never comes";
    EXPECT_EQ(refused.output, "0\n");
    EXPECT_NE(refused.errors.find("refused \"Fetch\""), std::string::npos) << refused.errors;
}

TEST_F(ToolsTest, TheToolListsPagesAndBrowses) {
    m_sticks.Make("stick", "--photos", 1200);
    StartService();
    const Outcome storages = Tool({"storages", "--json"});
    ASSERT_EQ(storages.status, 0) << storages.errors;
    const Json::Value storage = Parse(storages.output);
    const std::string id = storage["id"].asString();
    for (const std::string& name : {id, storage["mountPath"].asString(), UsbRoot() + "/stick/"})
        EXPECT_EQ(Tool({"count", name, "photo"}).output, "1201\n") << name;
    const auto all = JsonLines(Tool({"--json", "query", id, "photo"}).output);
    std::set<std::string> ids;
    for (const auto& item : all) ids.insert(item["id"].asString());
    EXPECT_EQ(ids.size(), 1201u);
    EXPECT_EQ(JsonLines(Tool({"--json", "--limit", "7", "query", id, "photo"}).output).size(), 7u);
    EXPECT_EQ(JsonLines(Tool({"--json", "fetch", id, "photo", "1195", "50"}).output).size(), 6u);
    EXPECT_EQ(Tool({"fetch", id, "photo", "1300", "5"}).status, 1);
    const std::string table = Tool({"query", id, "photo", "--limit", "2"}).output;
    EXPECT_NE(table.find("2 of 1201"), std::string::npos) << table;
    EXPECT_NE(Tool({"browse", UsbRoot() + "/stick"}).output.find("Trip/"), std::string::npos);
    EXPECT_EQ(Tool({"query", id, "photo", "--limit", "0"}).output, "0 of 1201\n");
    EXPECT_EQ(Tool({"--json", "browse", "stick", "--limit", "0"}).output, "");
    for (const char* path : {"stick/no/where", "stick/broken.jpg"}) {
        const Outcome missing = Tool({"browse", path});
        EXPECT_EQ(missing.status, 1);
        EXPECT_NE(missing.errors.find(std::string("$USB_DIR/") + path), std::string::npos)
            << missing.errors;
    }
    for (const Words& words : {Words{"query", id, "photo"}, {"--json", "storages"}, {"--help"}}) {
        Words command = {"sh",        "-c",        R"(exec "$0" "$@" >/dev/full)",
                         CONTENTSCTL, "--address", Address()};
        command.insert(command.end(), words.begin(), words.end());
        const Outcome lost = RunProgram(command);
        EXPECT_EQ(lost.status, 1) << words[0];
        EXPECT_NE(lost.errors.find("No space left"), std::string::npos) << lost.errors;
    }
}

TEST_F(ToolsTest, TheShellCompletesCommandsOptionsAndStorages) {
    if (!fs::exists("/usr/share/bash-completion/bash_completion"))
        GTEST_SKIP() << "bash-completion is not installed";
    m_sticks.Make("my stick", "--photos", 5);
    StartService();
    const std::string script =
        R"(. /usr/share/bash-completion/bash_completion; . "$0"; PATH=${1%/*}:$PATH; shift
        COMP_WORDS=(contentsctl "$@") COMP_CWORD=$# COMP_LINE=${COMP_WORDS[*]}
        COMP_POINT=${#COMP_LINE}; _contentsctl; printf '%s|' "${COMPREPLY[@]}")";
    const struct {
        Words line;
        const char* offered;
    } cases[] = {
        {{"u"}, "unregister|"},
        {{"--json", "--no"}, "--no-wait|"},
        {{"--limit", "5", "count", "my"}, "my\\ stick|"},
        {{"query", "my stick", "p"}, "photo|"},
        {{"--address", "unix:path=/nowhere", "count", "my"}, "|"},
    };
    for (const auto& test : cases) {
        Words words = {"bash", "-c", script, COMPLETION, CONTENTSCTL};
        words.insert(words.end(), test.line.begin(), test.line.end());
        EXPECT_EQ(RunProgram(words, {{"CONTENTS_MGR_ADDRESS", Address()}}).output, test.offered);
    }
}

// More subfolders and files than a page holds, in numbers where a page's arithmetic bites.
TEST_F(ToolsTest, TheToolBrowsesFoldersLargerThanAPage) {
    m_sticks.Make("stick", "--photos", 1203);
    const std::string folder = UsbRoot() + "/stick/Crowd";
    fs::create_directories(folder);
    std::multiset<std::string> onDisk, listed;
    for (const auto& entry : fs::recursive_directory_iterator(UsbRoot() + "/stick")) {
        if (entry.path().extension() != ".jpg" || entry.path().parent_path() == folder) continue;
        const std::string name = std::to_string(onDisk.size()) + ".jpg";
        fs::copy_file(entry.path(), folder + "/" + name);
        onDisk.insert("photo " + name);
    }
    for (int i = 0; i < 605; ++i) {
        const std::string name = "sub" + std::to_string(i);
        fs::create_directory(folder + "/" + name);
        onDisk.insert("folder " + name);
    }
    StartService();
    for (const auto& line : JsonLines(Tool({"--json", "browse", folder}).output))
        listed.insert(line["type"].asString() + " " + line["name"].asString());
    EXPECT_EQ(listed, onDisk);
}

TEST_F(ToolsTest, TheToolRegistersAndMonitors) {
    m_sticks.Make("stick", "--photos", 5);
    StartService();
    const auto items = JsonLines(Tool({"--json", "query", "stick", "photo"}).output);
    ASSERT_EQ(items.size(), 6u);
    const std::string id = items[0]["id"].asString();
    const std::string heard = Folder() + "/monitor";
    Program monitor({CONTENTSCTL, "--json", "--address", Address(), "monitor"}, heard);
    ASSERT_TRUE(WaitForText(heard, "Listening"));
    EXPECT_EQ(Tool({"unregister", id}).output, "removed " + id + "\n");
    EXPECT_EQ(Tool({"count", "stick", "photo"}).output, "5\n");
    EXPECT_EQ(Tool({"register", items[0]["fullPathName"].asString()}).status, 0);
    EXPECT_EQ(Tool({"count", "stick", "photo"}).output, "6\n");
    m_sticks.PullOut("stick");
    ASSERT_TRUE(WaitForText(heard, "USB_DISCONNECTED"));
    monitor.Signal(SIGTERM);
    EXPECT_EQ(monitor.Wait(), 0);
    const Json::Value last = JsonLines(ReadFile(heard)).back();
    EXPECT_EQ(last["payload"]["storage"]["name"], "stick");
    EXPECT_EQ(last["time"].asString().size(),
              std::string("2026-11-25T03:17:57.123456+01:00").size());
}

TEST_F(ToolsTest, TheMonitorSpeaksToPeople) {
    StartService();
    const std::string heard = Folder() + "/monitor";
    Program monitor({CONTENTSCTL, "--address", Address(), "monitor"}, heard);
    ASSERT_TRUE(WaitForText(heard, "Listening"));
    m_sticks.Make("stick", "--photos", 5);
    for (const char* text : {"USB_CONNECTED  stick (msc, ", "$USB_DIR/stick\n", " is ready\n"})
        EXPECT_TRUE(WaitForText(heard, text)) << text << " is not in " << ReadFile(heard);
}

// The example in the documents, as a reader would run it.
TEST_F(ToolsTest, TheExampleClientInTheDocumentsWorks) {
    m_sticks.Make("stick", "--photos", 12);
    StartService();
    const Outcome outcome = RunProgram({"sh", EXAMPLE_CLIENT, Address(), "stick"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("13 photos"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("$USB_DIR/stick/"), std::string::npos) << outcome.output;
    EXPECT_NE(RunProgram({"sh", EXAMPLE_CLIENT, Address(), "no such stick"}).status, 0);
}

}  // namespace
}  // namespace test
