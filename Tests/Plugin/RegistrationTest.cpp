// Adding files to the database and removing records from it.
#include "PluginTest.h"

namespace test {
namespace {

class RegistrationTest : public PluginTest {
protected:
    RegistrationTest() {
        AddStick();
        for (const std::string name : {"a", "b", "c"})
            platform.AddFile({"/" + name, {}, 0, "id-" + name});
        for (const char* id : {"7", "8"}) platform.Add(Item{OnStick("x.jpg"), {}, 0, id});
    }
};

// In this order: what one removes the next does not find.
TEST_F(RegistrationTest, EachPathOrIdIsTriedAndReported) {
    const struct {
        bool registers;
        Strings items;
        const char* payload;
    } cases[] = {
        // clang-format off
        {true, {"/b", "/a"},
         R"({"failed":null,"result":1,"succeeded":[{"id":"id-a","path":"/a"},{"id":"id-b","path":"/b"}]})"},
        {true, {"/a", "/gone", "/b"},
         R"({"failed":["/gone"],"result":0,"succeeded":[{"id":"id-a","path":"/a"},{"id":"id-b","path":"/b"}]})"},
        {true, {"/a", "/a"}, R"({"failed":null,"result":0,"succeeded":[{"id":"id-a","path":"/a"}]})"},
        {true, {"/x", "/y", "/x"}, R"({"failed":["/x","/y","/x"],"result":0,"succeeded":[]})"},
        {false, {"9", "7"}, R"({"failed":["9"],"result":0,"succeeded":["7"]})"},
        {false, {"8"}, R"({"failed":null,"result":1,"succeeded":["8"]})"},
        {false, {"7", "8"}, R"({"failed":["7","8"],"result":0,"succeeded":null})"},
        // clang-format on
    };
    ConnectedRig rig;
    for (const auto& c : cases) {
        int id = 0;
        ASSERT_TRUE(c.registers ? rig.task.RegisterContents("S1", c.items, id)
                                : rig.task.UnregisterContents("S1", c.items, id));
        const char* const event =
            c.registers ? "CONTETNS_REGISTER_COMPLETED" : "CONTENTS_UNREGISTER_COMPLETED";
        EXPECT_EQ(platform.WaitForEvent(event).payload, std::string(c.payload) + "\n");
        EXPECT_EQ(platform.LiveHandles(), 0) << "each record is given back";
    }
}

TEST_F(RegistrationTest, APathWhoseIdCannotBeReadIsNeitherDoneNorFailed) {
    ConnectedRig rig;
    platform.Fail("media_info_get_media_id", 2);
    int id = 0;
    ASSERT_TRUE(rig.task.RegisterContents("S1", {"/a", "/b", "/c"}, id));
    const Json::Value event = Await("CONTETNS_REGISTER_COMPLETED");
    EXPECT_EQ(event["result"].asInt(), 0);
    EXPECT_EQ(Column(event["succeeded"], "path"), (Strings{"/a", "/c"}));
    EXPECT_TRUE(event["failed"].isNull());
}

}  // namespace
}  // namespace test
