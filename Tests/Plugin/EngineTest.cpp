// The engine's commands, as far as the log or what is thrown tells of them (their answers are
// tested with the real host), and events that no task manager asks for.
#include "PluginTest.h"

namespace test {
namespace {

class EngineTest : public PluginTest {};

TEST_F(EngineTest, EachEngineHasATaskManagerAndWorkerOfItsOwn) {
    auto first = std::make_unique<CPlivEngineContentsMgr>();
    auto second = std::make_unique<CPlivEngineContentsMgr>();
    EXPECT_TRUE(HasThreads(2)) << "one worker each";
    Strings tasks;
    for (const LogLine& line : platform.Log())
        if (line.format.find("CPlivTaskContentsMgr is allocated on : %p]\n") != std::string::npos)
            tasks.push_back(line.message);
    ASSERT_EQ(tasks.size(), 2u);
    EXPECT_NE(tasks[0], tasks[1]);
    EXPECT_EQ(platform.Log()[0].tag, "CONTENTS_MANAGER_PLIV");
    first.reset();
    EXPECT_TRUE(HasThreads(1));
}

TEST_F(EngineTest, CommandsAreLoggedAsTheyStartAndEnd) {
    const struct {
        const char* command;
        const char* arg2;
        Strings messages;  // between the start and the end
        bool handled = true;
    } cases[] = {
        {"StartSync", "", {}},
        {"Query", "photos", {}, false},
        {"connect", "", {"Not Supported Command"}, false},
        {"RegisterContents", "no json", {"Failed to parse...\n", " Media is NOT Connected"}},
        {"UnregisterContents", "no json", {"Failed to parse...\n", " Media is NOT Connected"}},
        {"RegisterContents",
         R"({"fullpaths":["$USB_DIR/a"]})",
         {"fullPath = $USB_DIR/a\n", " Media is NOT Connected"}},
    };
    CPlivEngineContentsMgr engine;
    for (const auto& c : cases) {
        const std::string name = std::string("[") + c.command + "] CMD ";
        SCOPED_TRACE(name + c.arg2);
        platform.ForgetLog();
        EXPECT_EQ(Command(engine, c.command, "S1", c.arg2).handled, c.handled);
        Strings messages{name + "Started"};
        messages.insert(messages.end(), c.messages.begin(), c.messages.end());
        if (c.handled) messages.push_back(name + "Executed(0)");
        EXPECT_EQ(platform.Messages(kProgress), messages);
    }
    platform.ForgetLog();
    EXPECT_ANY_THROW(Command(engine, "RegisterContents", "S1", R"({"fullpaths":["a",{},"b"]})"));
    EXPECT_TRUE(platform.HasLog(kProgress, "fullPath = a\n")) << "what was read before";
    EXPECT_FALSE(platform.HasLog(kProgress, "fullPath = b\n"));
    EXPECT_EQ(Command(engine, "Connect").value, "1");
    EXPECT_TRUE(platform.HasLog("[Connect] CMD Executed(1)"));
    std::string value;
    EXPECT_TRUE(engine.ExecuteWithParamList(value, "Fetch", {"a"}));
    EXPECT_TRUE(platform.HasLog(kProgress, "[Fetch] CMD Started"));
}

TEST_F(EngineTest, AThrownTextIsCaughtAnythingElseReachesTheHost) {
    CPlivEngineContentsMgr engine;
    platform.OnCall("usb_device_get_device_list", [] { throw std::string("no bus"); });
    EXPECT_FALSE(Command(engine, "Connect").handled);
    EXPECT_TRUE(platform.HasLog(kProgress, "Exception Handled by : [no bus] "));
    platform.OnCall("usb_device_get_device_list", [] { throw std::runtime_error("other"); });
    EXPECT_THROW(Command(engine, "Connect"), std::runtime_error);
    platform.OnCall("usb_device_get_device_list", nullptr);
    EXPECT_EQ(Command(engine, "Connect").value, "1") << "a lock was left behind";
}

TEST_F(EngineTest, TextsThatAreNotUtf8AreRepairedInEveryPayload) {
    const std::string bad = "\xff Caf\xe9.jpg \xed\xa0\x80 \xc0\xaf \xf0\x9f\x8e";
    const std::string good =
        "\\ufffd Caf\\ufffd.jpg \\ufffd\\ufffd\\ufffd \\ufffd\\ufffd \\ufffd\\ufffd\\ufffd";
    CPlivEngineContentsMgr engine;
    Strings failed{bad, "\xc3\x9c \xf0\x9f\x8e\xb5"};
    std::map<std::string, std::string> done{{bad, "1"}};
    engine.OnContentsRegistered(0, 1, done, failed);
    EXPECT_EQ(platform.Events().back().payload,
              "{\"failed\":[\"" + good + "\",\"\\u00dc \\ud83c\\udfb5\"],\"result\":0," +
                  "\"succeeded\":[{\"id\":\"1\",\"path\":\"" + good + "\"}]}\n");
    Json::Value page;
    page["files"][0]["name"] = bad;
    engine.OnFetchFinished(1, 1, page, true, true);
    EXPECT_NE(platform.Events().back().payload.find("\"name\":\"" + good), std::string::npos);
    AddStick("/mnt/" + bad);
    Command(engine, "Connect");
    EXPECT_NE(Command(engine, "GetStorages").value.find("/mnt/" + good), std::string::npos);
}

TEST_F(EngineTest, AFailedPageAndOneOfNoMediaKindCarryNoItems) {
    CPlivEngineContentsMgr engine;
    Json::Value items(Json::arrayValue);
    items.append("an item");
    for (const auto& [result, type] :
         {std::make_pair(0, dorn::MEDIA_TYPE_PHOTO), std::make_pair(1, dorn::MEDIA_TYPE_FOLDER)}) {
        engine.OnFetchFinished(result, 9, items, type, true, false);
        EXPECT_EQ(platform.WaitForEvent("FETCH_COMPLETED").payload,
                  "{\"id\":9,\"isFirstPage\":true,\"isLastPage\":false,\"result\":" +
                      std::to_string(result) + "}\n");
        EXPECT_EQ(items.size(), 1u) << "the caller's own";
    }
}

}  // namespace
}  // namespace test
