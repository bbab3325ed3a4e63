// Adding files to the database and removing records from it.
#include "PluginTest.h"

namespace test {
namespace {

class RegistrationTest : public PluginTest {
protected:
    RegistrationTest() {
        AddStick();
        for (const char* name : {"a", "b", "c"}) {
            Item file = Photo(std::string("/") + name);
            file.id = std::string("id-") + name;
            platform.AddFile(file);
        }
        for (const char* id : {"7", "8"}) {
            Item item = Photo(OnStick("x.jpg"));
            item.id = id;
            platform.Add(item);
        }
    }
};

TEST_F(RegistrationTest, RefusedRequestsGetNoId) {
    Rig rig;
    int id = -1;
    EXPECT_FALSE(rig.task.RegisterContents("S1", {"/a"}, id));
    EXPECT_FALSE(rig.task.UnregisterContents("S1", {"7"}, id));
    EXPECT_EQ(platform.CountLog(" Media is NOT Connected"), 2);
    ASSERT_TRUE(rig.task.Connect());
    EXPECT_FALSE(rig.task.RegisterContents("S1", {}, id));
    EXPECT_TRUE(platform.HasLog(kProgress, "paths is NULL \n"));
    EXPECT_FALSE(rig.task.UnregisterContents("S1", {}, id));
    EXPECT_TRUE(platform.HasLog(kProgress, " MeidaIds is NULL \n"));
    EXPECT_EQ(id, -1);
    ASSERT_TRUE(rig.task.RegisterContents("no such storage", {"/a"}, id));
    EXPECT_EQ(id, 1);
    ASSERT_TRUE(rig.task.UnregisterContents("", {"7"}, id));
    EXPECT_EQ(id, 2);
    Await("CONTENTS_UNREGISTER_COMPLETED");
    EXPECT_EQ(platform.Events().size(), 2u);
}

// In this order: what one removes the next does not find.
TEST_F(RegistrationTest, EachPathOrIdIsTriedAndReported) {
    const struct {
        const char* what;
        bool registers;
        Strings items;
        const char* payload;
        Strings failures;  // in the log
    } cases[] = {
        // clang-format off
        {"all there", true, {"/b", "/a"},
         R"({"failed":null,"result":1,"succeeded":[{"id":"id-a","path":"/a"},{"id":"id-b","path":"/b"}]})",
         {}},
        {"one missing", true, {"/a", "/gone", "/b"},
         R"({"failed":["/gone"],"result":0,"succeeded":[{"id":"id-a","path":"/a"},{"id":"id-b","path":"/b"}]})",
         {"FAILED to Insertion  : /gone (error:-1004) \n"}},
        {"one path twice", true, {"/a", "/a"},
         R"({"failed":null,"result":0,"succeeded":[{"id":"id-a","path":"/a"}]})", {}},
        {"no path there", true, {"/x", "/y", "/x"},
         R"({"failed":["/x","/y","/x"],"result":0,"succeeded":[]})",
         {"FAILED to Insertion  : /x (error:-1004) \n", "FAILED to Insertion  : /y (error:-1004) \n",
          "FAILED to Insertion  : /x (error:-1004) \n"}},
        {"one of two ids known", false, {"9", "7"}, R"({"failed":["9"],"result":0,"succeeded":["7"]})",
         {" FAILED to Delete!! : 9 (error:-1004)\n"}},
        {"an id", false, {"8"}, R"({"failed":null,"result":1,"succeeded":["8"]})", {}},
        {"no id left", false, {"7", "8"}, R"({"failed":["7","8"],"result":0,"succeeded":null})",
         {" FAILED to Delete!! : 7 (error:-1004)\n", " FAILED to Delete!! : 8 (error:-1004)\n"}},
        // clang-format on
    };
    ConnectedRig rig;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        platform.ForgetLog();
        int id = 0;
        ASSERT_TRUE(c.registers ? rig.task.RegisterContents("S1", c.items, id)
                                : rig.task.UnregisterContents("S1", c.items, id));
        const std::string payload = std::string(c.payload) + "\n";
        EXPECT_EQ(platform
                      .WaitForEvent(c.registers ? "CONTETNS_REGISTER_COMPLETED"
                                                : "CONTENTS_UNREGISTER_COMPLETED")
                      .payload,
                  payload);
        Strings messages = c.failures;
        messages.push_back(payload);
        EXPECT_EQ(platform.Messages(kProgress), messages);
        EXPECT_TRUE(platform.LiveHandles().empty()) << "each record is given back";
    }
}

TEST_F(RegistrationTest, APathWhoseIdCannotBeReadIsNeitherDoneNorFailed) {
    ConnectedRig rig;
    platform.Fail("media_info_get_media_id", 2, MEDIA_CONTENT_ERROR_DB_FAILED);
    int id = 0;
    ASSERT_TRUE(rig.task.RegisterContents("S1", {"/a", "/b", "/c"}, id));
    const Json::Value event = Await("CONTETNS_REGISTER_COMPLETED");
    EXPECT_EQ(event["result"].asInt(), 0);
    EXPECT_EQ(Column(event["succeeded"], "path"), (Strings{"/a", "/c"}));
    EXPECT_TRUE(event["failed"].isNull());
}

}  // namespace
}  // namespace test
