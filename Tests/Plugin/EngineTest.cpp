// The process entry, the application object, the commands and the notifications.
#include <algorithm>

#include "PlivAppContentsMgr.h"
#include "PluginTest.h"

#define main PluginMain
#include "Main.cpp"
#undef main

namespace test {
namespace {

class EngineTest : public PluginTest {};

struct App : dorn::CPlivAppContentsMgr {
    Strings Identity() const { return {m_pluginName, m_pluginId, m_pluginVersion, m_displayName}; }
    std::string Vendor() const { return m_pluginVendor; }
};

std::string Address(const char* before, const void* pointer) {
    char text[128];
    snprintf(text, sizeof text, "%s is allocated on : %p]\n", before, pointer);
    return text;
}

TEST_F(EngineTest, TheProcessReturnsWhatTheHostReturned) {
    platform.SetPlivMain(7, true);
    EXPECT_EQ(PluginMain(0, nullptr), 7);
    EXPECT_EQ(platform.MadeEngines(), 1);
    const Strings lines = platform.Messages(kProgress);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front(), "Process Created!!!");
    EXPECT_EQ(lines.back(), "Process Destroyed!!!");
    EXPECT_EQ(platform.Log().front().tag, "CONTENTS_MANAGER_PLIV");
    EXPECT_EQ(platform.Log().front().file, "Main.cpp");
    delete platform.LastApp();  // the process leaves it to its end
}

TEST_F(EngineTest, TheApplicationTellsWhoItIs) {
    App app;
    EXPECT_EQ(app.Identity(), (Strings{"ContentsMgr", "0002", "2.000", "ContentsManager"}));
    EXPECT_EQ(app.Vendor(), "");
}

TEST_F(EngineTest, EachEngineHasATaskManagerAndWorkerOfItsOwn) {
    App app;
    dorn::CPlivEngineBase* first = app.CreatePlivEngine();
    dorn::CPlivEngineBase* second = app.CreatePlivEngine();
    ASSERT_NE(first, second);
    EXPECT_TRUE(HasThreads(2)) << "one worker each";
    for (const void* engine : {first, second})
        EXPECT_TRUE(platform.HasLog(kTrace, Address("CPlivEngineContentsMgr", engine)));
    Strings tasks;
    for (const LogLine& line : platform.Log())
        if (line.format.find("CPlivTaskContentsMgr is allocated on : %p]\n") != std::string::npos)
            tasks.push_back(line.message);
    ASSERT_EQ(tasks.size(), 2u);
    EXPECT_NE(tasks[0], tasks[1]);
    first->Destroy();
    EXPECT_TRUE(HasThreads(1));
    second->Destroy();
    EXPECT_EQ(platform.CallCount("media_content_disconnect"), 0) << "neither was connected";
}

// ---- commands ----

struct CommandCase {
    const char* command;
    const char* arg1;
    const char* arg2;
    bool handled;
    const char* value;  // null: no return value
    bool known = true;
};

TEST_F(EngineTest, CommandsOfADisconnectedEngine) {
    const CommandCase cases[] = {
        {"Disconnect", "", "", true, "0"},
        {"Query", "S1", "photo", true, "0"},
        {"Query", "S1", "photos", false, nullptr},
        {"Query", "S1", "", false, nullptr},
        {"Query", "S1", "Photo", false, nullptr},
        {"Fetch", "0", "10", true, "0"},
        {"GetCount", "2", "", true, "0"},
        {"GetStorages", "", "", true, "0"},
        {"SubscribeEvent", R"({"ids":["QUERY_COMPLETED"]})", "", true, "0"},
        {"SubscribeEvent", R"({"ids":[7, null, true]})", "", true, "0"},
        {"SubscribeEvent", R"({"ids":[]})", "", false, nullptr},
        {"SubscribeEvent", R"({"ids":"QUERY_COMPLETED"})", "", false, nullptr},
        {"SubscribeEvent", "{}", "", false, nullptr},
        {"SubscribeEvent", "null", "", false, nullptr},
        {"SubscribeEvent", "no json", "", false, nullptr},
        {"UnsubscribeEvent", R"({"ids":["x"]})", "", true, "0"},
        {"UnsubscribeEvent", "", "", false, nullptr},
        {"StartSync", "S1", "", true, "0"},
        {"StopSync", "S1", "", true, "0"},
        {"GetSyncState", "S1", "", true, "0"},
        {"RegisterContents", "S1", R"({"fullpaths":["/a"]})", true, "0"},
        {"UnregisterContents", "S1", R"({"ids":["1"]})", true, "0"},
        {"connect", "", "", false, nullptr, false},
        {"", "", "", false, nullptr, false},
        {"Connect ", "", "", false, nullptr, false},
    };
    CPlivEngineContentsMgr engine;
    for (const CommandCase& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + c.arg1 + " " + c.arg2);
        platform.ForgetLog();
        const Reply reply = Command(engine, c.command, c.arg1, c.arg2);
        EXPECT_EQ(reply.handled, c.handled);
        EXPECT_EQ(reply.value, c.value ? c.value : "untouched");
        const std::string name = std::string("[") + c.command + "] CMD ";
        EXPECT_TRUE(platform.HasLog(kProgress, name + "Started"));
        EXPECT_EQ(platform.HasLog(kProgress, name + "Executed(0)"), c.handled);
        EXPECT_EQ(platform.HasLog(kProgress, "Not Supported Command"), !c.known);
    }
}

TEST_F(EngineTest, WrongJsonTypesReachTheHostAndTheEngineLivesOn) {
    CPlivEngineContentsMgr engine;
    for (const char* ids : {"[1]", "5", R"({"ids":[["nested"]]})", R"({"ids":{"a":1}})"})
        EXPECT_THROW(Command(engine, "SubscribeEvent", ids), std::exception) << ids;
    EXPECT_THROW(Command(engine, "RegisterContents", "S1", R"({"fullpaths":[{}]})"),
                 std::exception);
    EXPECT_EQ(Command(engine, "Connect").value, "1");
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

TEST_F(EngineTest, StoragesAreAnsweredAsText) {
    CPlivEngineContentsMgr engine;
    EXPECT_EQ(Command(engine, "Connect").value, "1");
    EXPECT_EQ(Command(engine, "GetStorages").value, "{\"storages\":[]}\n");
    AddStick();
    AddStick("/opt/storage/usb/sdb1", "S2");
    Device odd = Stick("/mnt/disk");
    odd.partlabel = "\xff label";  // not UTF-8
    platform.Add(odd);
    const std::string text = Command(engine, "GetStorages").value;
    EXPECT_EQ(std::count_if(text.begin(), text.end(), [](char c) { return c < 0; }), 0);
    const Json::Value storages = Parse(text)["storages"];
    EXPECT_EQ(Column(storages, "id"), (Strings{"S1", "S2", ""}));
    EXPECT_TRUE(platform.HasLog("[GetStorages] CMD Executed(1)"));
}

TEST_F(EngineTest, RegistrationReadsItsListLeniently) {
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    platform.AddFile(Photo("/opt/storage/usb/sda1/a.jpg"));
    for (const char* list : {"no json", "{}", R"({"fullpaths":null})", R"({"fullpaths":[]})"}) {
        platform.ForgetLog();
        EXPECT_EQ(Command(engine, "RegisterContents", "S1", list).value, "0") << list;
        EXPECT_TRUE(platform.HasLog(kProgress, "paths is NULL \n")) << list;
        EXPECT_EQ(platform.HasLog("Failed to parse...\n"), list == std::string("no json"));
    }
    EXPECT_EQ(Command(engine, "UnregisterContents", "S1", "no json").value, "0");
    EXPECT_TRUE(platform.HasLog(kProgress, " MeidaIds is NULL \n"));
    const Reply reply =
        Command(engine, "RegisterContents", "S1", R"({"fullpaths":["$USB_DIR/sda1/a.jpg"]})");
    EXPECT_EQ(reply.value, "1") << "the first request id";
    EXPECT_TRUE(platform.HasLog("fullPath = $USB_DIR/sda1/a.jpg\n"));
    EXPECT_EQ(Await("CONTETNS_REGISTER_COMPLETED")["succeeded"][0]["path"].asString(),
              "/opt/storage/usb/sda1/a.jpg");
}

TEST_F(EngineTest, AParameterListIsOnlyLogged) {
    CPlivEngineContentsMgr engine;
    std::string value = "untouched";
    EXPECT_TRUE(engine.ExecuteWithParamList(value, "Connect", {"a"}));
    EXPECT_FALSE(engine.ExecuteWithParamList(value, "", {}));
    EXPECT_EQ(value, "untouched");
    EXPECT_TRUE(platform.HasLog("[Connect] CMD Started"));
    EXPECT_TRUE(platform.HasLog("[] CMD Started"));
    EXPECT_EQ(platform.Connections(), 0);
}

// ---- notifications ----

struct NotificationCase {
    const char* what;
    std::function<void(CPlivEngineContentsMgr&)> notify;
    int kind;
    const char* name;
    std::string payload;
    Strings messages;
};

TEST_F(EngineTest, EachNotificationIsOneEvent) {
    std::map<std::string, std::string> done{{"/b", "2"}, {"/a", "1"}};
    std::map<std::string, std::string> noneDone;
    Strings ids{"7", "8"}, none;
    Json::Value photos(Json::arrayValue);
    photos.append("p");
    const std::string registered =
        R"({"failed":["7","8"],"result":0,"succeeded":[{"id":"1","path":"/a"},{"id":"2","path":"/b"}]})";
    const std::string fetched = R"({"id":9,"isFirstPage":true,"isLastPage":false,)";
    const auto fetch = [&](int result, MediaType type) {
        return [=](CPlivEngineContentsMgr& engine) {
            Json::Value items = photos;
            engine.OnFetchFinished(result, 9, items, type, true, false);
            EXPECT_EQ(items, photos);
        };
    };
    const auto fetchLine = [](int result) {
        return "Fetch Finished Result: " + std::to_string(result) + ", Id: 9";
    };
    // clang-format off
    const NotificationCase cases[] = {
        {"registered", [&](auto& e) { e.OnContentsRegistered(0, 5, done, ids); }, 1,
         "CONTETNS_REGISTER_COMPLETED", registered, {registered + "\n"}},
        {"nothing registered", [&](auto& e) { e.OnContentsRegistered(1, 5, noneDone, none); }, 1,
         "CONTETNS_REGISTER_COMPLETED", R"({"failed":null,"result":1,"succeeded":[]})", {}},
        {"removed", [&](auto& e) { e.OnContentsUnregistered(1, 5, ids, none); }, 1,
         "CONTENTS_UNREGISTER_COMPLETED", R"({"failed":null,"result":1,"succeeded":["7","8"]})",
         {"{\"failed\":null,\"result\":1,\"succeeded\":[\"7\",\"8\"]}\n"}},
        {"not removed", [&](auto& e) { e.OnContentsUnregistered(0, 5, none, ids); }, 1,
         "CONTENTS_UNREGISTER_COMPLETED", R"({"failed":["7","8"],"result":0,"succeeded":null})",
         {}},
        {"query", [](auto& e) { e.OnQueryFinished(1, 12); }, 1, "QUERY_COMPLETED",
         R"({"count":12,"result":1})", {"Query Finished Result: 1, Count: 12",
         "{\"count\":12,\"result\":1}\n"}},
        {"failed query", [](auto& e) { e.OnQueryFinished(0, 3); }, 1, "QUERY_COMPLETED",
         R"({"result":0})", {"Query Finished Result: 0, Count: 3"}},
        {"late query", [](auto& e) { e.OnQueryFinished(-10, 0); }, 1, "QUERY_COMPLETED",
         R"({"result":-10})", {}},
        {"photos", fetch(1, dorn::MEDIA_TYPE_PHOTO), 1, "FETCH_COMPLETED",
         fetched + R"("photos":["p"],"result":1})", {fetchLine(1)}},
        {"videos", fetch(1, dorn::MEDIA_TYPE_VIDEO), 1, "FETCH_COMPLETED",
         fetched + R"("result":1,"videos":["p"]})", {fetchLine(1)}},
        {"music", fetch(1, dorn::MEDIA_TYPE_MUSIC), 1, "FETCH_COMPLETED",
         fetched + R"("music":["p"],"result":1})", {fetchLine(1)}},
        {"folder type on a media page", fetch(1, dorn::MEDIA_TYPE_FOLDER), 1, "FETCH_COMPLETED",
         fetched + R"("result":1})", {fetchLine(1)}},
        {"failed page", fetch(0, dorn::MEDIA_TYPE_PHOTO), 1, "FETCH_COMPLETED",
         fetched + R"("result":0})", {fetchLine(0)}},
    };
    // clang-format on
    CPlivEngineContentsMgr engine;
    for (const NotificationCase& c : cases) {
        SCOPED_TRACE(c.what);
        const size_t before = platform.Events().size();
        platform.ForgetLog();
        c.notify(engine);
        ASSERT_EQ(platform.Events().size(), before + 1);
        const Event event = platform.Events().back();
        EXPECT_EQ(event.engine, &engine);
        EXPECT_EQ(event.kind, c.kind);
        EXPECT_EQ(event.name, c.name);
        EXPECT_EQ(event.payload, c.payload + "\n");
        for (const std::string& message : c.messages)
            EXPECT_TRUE(platform.HasLog(kProgress, message)) << message;
    }
}

TEST_F(EngineTest, SyncEventsCarryTheStorageIdItself) {
    CPlivEngineContentsMgr engine;
    for (int result : {1, 0, -5}) engine.OnSyncFinished(result, "S\"1");
    const std::vector<Event> events = platform.Events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].name, "SYNC_COMPLETED");
    EXPECT_EQ(events[1].name, "SYNC_FAILED");
    EXPECT_EQ(events[2].name, "SYNC_FAILED");
    for (const Event& event : events) EXPECT_EQ(event.payload, "S\"1");
    EXPECT_EQ(events[0].kind, 1);
    EXPECT_TRUE(platform.HasLog(kProgress, "Storage Sync Finished(S\"1), result [-5]"));
}

TEST_F(EngineTest, MediaUpdatesAreOnlyLogged) {
    CPlivEngineContentsMgr engine;
    engine.OnMediaUpdated(2, "/opt/storage/usb/sda1/a.jpg");
    EXPECT_TRUE(platform.Events().empty());
    EXPECT_TRUE(platform.HasLog(kTrace, "TYPE: 2"));
}

TEST_F(EngineTest, UsbEventsCarryTheStorage) {
    CPlivEngineContentsMgr engine;
    StoragePtr storage(new CMediaStorage);
    storage->SetDeviceID("S1");
    storage->SetMountPath("n/a");
    engine.OnUsbConnectionChanged(true, storage);
    engine.OnUsbConnectionChanged(false, storage);
    const std::vector<Event> events = platform.Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].name, "USB_CONNECTED");
    EXPECT_EQ(events[1].name, "USB_DISCONNECTED");
    for (const Event& event : events) {
        EXPECT_EQ(event.kind, 0);
        const Json::Value payload = Parse(event.payload);
        EXPECT_EQ(payload.getMemberNames(), Strings{"storage"});
        EXPECT_EQ(payload["storage"]["id"].asString(), "S1");
        EXPECT_TRUE(platform.HasLog(kProgress, "[" + event.name + "]:" + event.payload));
    }
}

TEST_F(EngineTest, AFolderPageIsCompletedInTheCallersObject) {
    CPlivEngineContentsMgr engine;
    Json::Value page;
    page["folders"] = page["files"] = Json::Value(Json::arrayValue);
    engine.OnFetchFinished(1, 4, page, false, true);
    EXPECT_EQ(platform.WaitForEvent("FETCH_COMPLETED").payload,
              "{\"files\":[],\"folders\":[],\"id\":4,\"isFirstPage\":false,\"isLastPage\":true,"
              "\"result\":1}\n");
    EXPECT_EQ(page["id"].asInt(), 4);
    EXPECT_EQ(page["result"].asInt(), 1);
    EXPECT_TRUE(page["isLastPage"].asBool());
}

}  // namespace
}  // namespace test
