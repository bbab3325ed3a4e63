// The engine, as far as its commands' answers do not tell (they are tested with the real host), and
// events that no task manager asks for.
#include "PluginTest.h"

namespace test {
namespace {

class EngineTest : public PluginTest {};

TEST_F(EngineTest, AThrownTextIsCaughtAnythingElseReachesTheHost) {
    CPlivEngineContentsMgr engine;
    platform.OnCall("usb_device_get_device_list", [] { throw std::string("no bus"); });
    EXPECT_FALSE(Command(engine, "Connect").handled);
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
