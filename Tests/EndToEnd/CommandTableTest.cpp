// Every command of the service over D-Bus, with arguments that it takes and that it does not.
#include "Service/ServiceTest.h"

namespace test {
namespace {

constexpr char kFailed[] = "dorn.PlivHost1.Error.CommandFailed";

struct Case {
    const char* command;
    const char* arg1;
    const char* arg2;
    const char* arg3;
    bool handled;
    const char* value;
    const char* error = "";
};

void Check(DBusClient& client, int handle, const Case& test) {
    SCOPED_TRACE(std::string(test.command) + " \"" + test.arg1 + "\" \"" + test.arg2 + "\"");
    const Answer answer = client.Execute(handle, test.command, test.arg1, test.arg2, test.arg3);
    ASSERT_EQ(answer.error, test.error) << answer.text;
    EXPECT_EQ(answer.handled, test.handled);
    EXPECT_EQ(answer.value, test.value);
}

constexpr Case kDisconnected[] = {
    {"Disconnect", "", "", "", true, "0"},
    {"Query", "some-id", "photo", "", true, "0"},
    {"Fetch", "0", "10", "", true, "0"},
    {"GetCount", "2", "", "", true, "0"},
    {"GetStorages", "", "", "", true, "0"},
    {"RegisterContents", "some-id", R"({"fullpaths":["/a.jpg"]})", "", true, "0"},
    {"UnregisterContents", "some-id", R"({"ids":["1"]})", "", true, "0"},
    {"StartSync", "", "", "", true, "0"},
    {"StopSync", "x", "", "", true, "0"},
    {"GetSyncState", "", "", "", true, "0"},
    {"SubscribeEvent", R"({"ids":["USB_CONNECTED"]})", "", "", true, "0"},
    {"SubscribeEvent", R"({"ids":[7,null,true]})", "", "", true, "0"},
    {"SubscribeEvent", R"({"ids":[]})", "", "", false, ""},
    {"SubscribeEvent", R"({"ids":"USB_CONNECTED"})", "", "", false, ""},
    {"SubscribeEvent", "{}", "", "", false, ""},
    {"SubscribeEvent", "", "", "", false, ""},
    {"UnsubscribeEvent", "no JSON", "", "", false, ""},
    {"connect", "", "", "", false, ""},
    {"", "", "", "", false, ""},
    {"\xe2\x82\xac", "", "", "", false, ""},
};

constexpr Case kConnected[] = {
    {"Connect", "", "", "", true, "1"},
    {"Connect", "again", "", "", true, "1"},
    {"GetStorages", "", "", "", true, "{\"storages\":[]}\n"},
    {"Query", "", "photo", "", true, "0"},
    {"Query", "some-id", "photos", "", false, ""},
    {"Query", "some-id", "Photo", "", false, ""},
    {"Fetch", "0", "10", "", true, "0"},
    {"Fetch", "x", "y", "", true, "0"},
    {"GetCount", "no number", "", "", true, "0"},
    {"GetCount", "99999999999999999999", "", "", true, "0"},
    {"RegisterContents", "", "no JSON", "", true, "0"},
    {"RegisterContents", "", R"({"fullpaths":[]})", "", true, "0"},
    {"RegisterContents", "", R"({"fullpaths":null})", "", true, "0"},
    {"UnregisterContents", "", "no JSON", "", true, "0"},
    {"UnregisterContents", "", R"({"ids":[]})", "", true, "0"},
    {"Query", "some-id", "photo", "", true, "1"},
    {"Disconnect", "", "", "", true, "1"},
    {"Disconnect", "", "", "", true, "0"},
};

TEST_F(ServiceTest, EveryCommandAnswersAsItShould) {
    StartService();
    const auto client = Client();
    const Answer opened = client->TryOpen();
    ASSERT_EQ(opened.error, "") << opened.text;
    const int handle = std::stoi(opened.value);
    for (const Case& test : kDisconnected) ASSERT_NO_FATAL_FAILURE(Check(*client, handle, test));
    for (const Case& test : kConnected) ASSERT_NO_FATAL_FAILURE(Check(*client, handle, test));
    EXPECT_EQ(client->Close(handle + 1), "dorn.PlivHost1.Error.UnknownHandle");
}

TEST_F(ServiceTest, JsonOfTheWrongShapeIsAnErrorAndTheServiceLives) {
    StartService();
    const auto client = Client();
    const int handle = client->Open();
    const Case cases[] = {
        {"SubscribeEvent", R"({"ids":{"a":1}})", "", "", false, "", kFailed},
        {"SubscribeEvent", R"({"ids":[{"a":1}]})", "", "", false, "", kFailed},
        {"SubscribeEvent", R"({"ids":[["a"]]})", "", "", false, "", kFailed},
        {"SubscribeEvent", "5", "", "", false, "", kFailed},
        {"UnsubscribeEvent", R"([1,2])", "", "", false, "", kFailed},
        {"RegisterContents", "", R"(["/a.jpg"])", "", false, "", kFailed},
        {"RegisterContents", "", R"({"fullpaths":[{}, []]})", "", false, "", kFailed},
        {"UnregisterContents", "", R"({"ids":[{"a":"b"}]})", "", false, "", kFailed},
    };
    for (const Case& test : cases) {
        Check(*client, handle, test);
        EXPECT_EQ(client->Execute(handle, "StartSync").value, "0");
    }
}

TEST_F(ServiceTest, ParameterListsRunNothing) {
    StartService();
    const auto client = Client();
    const int handle = client->Open();
    const Answer named = client->ExecuteWithParamList(handle, "Connect", {"a"});
    EXPECT_TRUE(named.handled);
    EXPECT_EQ(named.value, "");
    EXPECT_FALSE(client->ExecuteWithParamList(handle, "", {}).handled);
    EXPECT_EQ(client->Execute(handle, "Disconnect").value, "0") << "the list ran a command";
}

}  // namespace
}  // namespace test
