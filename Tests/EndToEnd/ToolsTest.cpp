// The programs that people and scripts use: the command line of the service, contentsctl, gdbus.
#include <signal.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "EndToEnd/Support/ServiceTest.h"

namespace test {
namespace {

using Words = std::vector<std::string>;

std::vector<Json::Value> JsonLines(const std::string& text) {
    std::vector<Json::Value> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(Parse(line));
    return lines;
}

TEST_F(ServiceTest, TheServiceTellsWrongUsage) {
    const Words cases[] = {{"--nonsense"},
                           {"extra"},
                           {"--bus", "omni"},
                           {"--address", "tcp:x"},
                           {"--log-level", "loud"}};
    for (Words words : cases) {
        words.insert(words.begin(), CONTENTS_MGR);
        const Outcome outcome = RunProgram(words);
        EXPECT_EQ(outcome.status, 2) << words[1];
        EXPECT_NE(outcome.errors.find("--help"), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(RunProgram({CONTENTS_MGR, "--help"}).status, 0);
    EXPECT_NE(RunProgram({CONTENTS_MGR, "--version"}).output.find("ContentsMgr 2.000"),
              std::string::npos);
}

TEST_F(ServiceTest, ASecondServiceAtTheSameSocketIsRefused) {
    StartService();
    const Outcome second =
        RunProgram({CONTENTS_MGR, "--address", Address(), "--usb", "directory", "--usb-root",
                    UsbRoot(), "--database", Folder() + "/other.db"});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.errors.find("another process serves"), std::string::npos) << second.errors;
    EXPECT_GT(Client()->Open(), 0);
}

TEST_F(ServiceTest, GdbusCanCallAndIntrospect) {
    StartService();
    const Words target{"--address",        Address(),       "--dest",
                       "dorn.ContentsMgr", "--object-path", "/dorn/PlivHost"};
    Words introspect{"gdbus", "introspect"};
    introspect.insert(introspect.end(), target.begin(), target.end());
    const Outcome shown = RunProgram(introspect);
    EXPECT_EQ(shown.status, 0) << shown.errors;
    for (const char* member : {"Open(", "Execute(", "ExecuteWithParamList(", "Close(", "Event("})
        EXPECT_NE(shown.output.find(member), std::string::npos) << member;
    const auto call = [&](const Words& rest) {
        Words words{"gdbus", "call"};
        words.insert(words.end(), target.begin(), target.end());
        words.push_back("--method");
        for (const auto& word : rest) words.push_back(word);
        return RunProgram(words);
    };
    EXPECT_EQ(call({"dorn.PlivHost1.Open", "me"}).output.substr(0, 1), "(");
    const Outcome unknown = call({"dorn.PlivHost1.Close", "12345"});
    EXPECT_NE(unknown.status, 0);
    EXPECT_NE(unknown.errors.find("UnknownHandle"), std::string::npos) << unknown.errors;
}

TEST_F(ServiceTest, TheToolTellsWrongUsageAndAMissingService) {
    const struct {
        Words words;
        int status;
        const char* text;
    } cases[] = {
        {{}, 2, "--help"},
        {{"fly"}, 2, "fly"},
        {{"query", "stick"}, 2, "query STORAGE KIND"},
        {{"--limit", "many", "query", "a", "photo"}, 2, "many"},
        {{"--wait", "X", "storages"}, 2, "run"},
        {{"--bus", "omni", "storages"}, 2, "omni"},
        {{"--address", "nonsense", "storages"}, 2, "unix:path="},
        {{"storages"}, 2, "Start contents-mgr"},
    };
    for (const auto& test : cases) {
        const Outcome outcome = Tool(test.words);
        EXPECT_EQ(outcome.status, test.status) << test.text;
        EXPECT_NE(outcome.errors.find(test.text), std::string::npos) << outcome.errors;
    }
    EXPECT_EQ(Tool({"--help"}).status, 0);
}

TEST_F(ServiceTest, TheToolRunsBareCommandsAndSaysWhatWasRefused) {
    StartService();
    EXPECT_EQ(Tool({"run", "GetStorages"}).output, "{\"storages\":[]}\n");
    EXPECT_EQ(Parse(Tool({"--json", "run", "Connect"}).output)["returnValue"], "1");
    EXPECT_EQ(Tool({"run", "--", "Fetch", "-1", "10"}).output, "0\n");
    const struct {
        Words words;
        const char* text;
    } refused[] = {
        {{"run", "getstorages"}, "case-sensitive"},
        {{"query", "nobody", "photo"}, "contentsctl storages"},
        {{"browse", "/nowhere"}, "lies in none"},
        {{"register", "/etc/hostname"}, "inside a mounted storage"},
        {{"unregister", "no-such-id"}, "no-such-id"},
    };
    for (const auto& test : refused) {
        const Outcome outcome = Tool(test.words);
        EXPECT_EQ(outcome.status, 1) << test.text;
        EXPECT_NE(outcome.errors.find(test.text), std::string::npos) << outcome.errors;
    }
    EXPECT_NE(Tool({"storages"}).errors.find("No storage"), std::string::npos);
}

TEST_F(ServiceTest, TheToolListsPagesAndBrowses) {
    PlugIn("stick", {"--photos", "DIR", "1200"});
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
}

// More subfolders and files than a page holds, in numbers where a page's arithmetic bites.
TEST_F(ServiceTest, TheToolBrowsesFoldersLargerThanAPage) {
    PlugIn("stick", {"--photos", "DIR", "1203"});
    const std::string folder = UsbRoot() + "/stick/Crowd";
    std::filesystem::create_directories(folder);
    size_t photos = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(UsbRoot() + "/stick"))
        if (entry.path().extension() == ".jpg" && entry.path().parent_path() != folder)
            std::filesystem::copy_file(entry.path(),
                                       folder + "/" + std::to_string(photos++) + ".jpg");
    for (int i = 0; i < 605; ++i)
        std::filesystem::create_directory(folder + "/sub" + std::to_string(i));
    StartService();
    const auto lines = JsonLines(Tool({"--json", "browse", folder}).output);
    std::set<std::string> folders;
    std::set<std::string> files;
    for (const auto& line : lines)
        EXPECT_TRUE(
            (line["type"] == "folder" ? folders : files).insert(line["name"].asString()).second)
            << line["name"] << " came twice";
    EXPECT_EQ(folders.size(), 605u);
    EXPECT_EQ(files.size(), photos);
}

TEST_F(ServiceTest, TheToolRegistersAndMonitors) {
    PlugIn("stick", {"--photos", "DIR", "5"});
    StartService();
    const auto items = JsonLines(Tool({"--json", "query", "stick", "photo"}).output);
    ASSERT_EQ(items.size(), 6u);
    const std::string id = items[0]["id"].asString();
    Program monitor({CONTENTSCTL, "--json", "--address", Address(), "monitor"},
                    Folder() + "/monitor");
    const auto told = [&](const char* text) {
        return Until(
            [&] { return ReadFile(Folder() + "/monitor").find(text) != std::string::npos; });
    };
    ASSERT_TRUE(told("Listening"));
    EXPECT_EQ(Tool({"unregister", id}).output, "removed " + id + "\n");
    EXPECT_EQ(Tool({"count", "stick", "photo"}).output, "5\n");
    EXPECT_EQ(Tool({"register", items[0]["fullPathName"].asString()}).status, 0);
    EXPECT_EQ(Tool({"count", "stick", "photo"}).output, "6\n");
    PullOut("stick");
    EXPECT_TRUE(told("USB_DISCONNECTED"));
    monitor.Signal(SIGTERM);
    EXPECT_EQ(monitor.Wait(), 0);
}

TEST_F(ServiceTest, TheMonitorSpeaksToPeople) {
    StartService();
    Program monitor({CONTENTSCTL, "--address", Address(), "monitor"}, Folder() + "/monitor");
    const auto told = [&](const char* text) {
        return Until(
            [&] { return ReadFile(Folder() + "/monitor").find(text) != std::string::npos; });
    };
    ASSERT_TRUE(told("Listening"));
    PlugIn("stick", {"--photos", "DIR", "5"});
    EXPECT_TRUE(told("USB_CONNECTED  stick (msc, ")) << ReadFile(Folder() + "/monitor");
    EXPECT_TRUE(told("$USB_DIR/stick\n")) << ReadFile(Folder() + "/monitor");
    EXPECT_TRUE(told(" is ready\n")) << ReadFile(Folder() + "/monitor");
}

// The example in the documents, as a reader would run it.
TEST_F(ServiceTest, TheExampleClientInTheDocumentsWorks) {
    PlugIn("stick", {"--photos", "DIR", "12"});
    StartService();
    const Outcome outcome = RunProgram({"sh", EXAMPLE_CLIENT, Address(), "stick"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("13 photos"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("$USB_DIR/stick/"), std::string::npos) << outcome.output;
    EXPECT_NE(RunProgram({"sh", EXAMPLE_CLIENT, Address(), "no such stick"}).status, 0);
}

}  // namespace
}  // namespace test
