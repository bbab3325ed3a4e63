// Pages of media and of folders.
#include "PluginTest.h"

namespace test {
namespace {

class FetchTest : public PluginTest {
protected:
    FetchTest() { AddStick(); }

    // Makes a query the current one.
    void Query(CPlivTaskContentsMgr& task, MediaType type, const std::string& folder = "") {
        ASSERT_TRUE(task.Query(folder.empty() ? "S1" : "DISK", type, folder, ""));
        Await("QUERY_COMPLETED");
    }
    Json::Value Page(CPlivTaskContentsMgr& task, int start, int count) {
        int id = 0;
        EXPECT_TRUE(task.Fetch(start, count, id));
        const Json::Value page = Await("FETCH_COMPLETED");
        EXPECT_EQ(page["id"].asInt(), id);
        EXPECT_EQ(page["result"].asInt(), 1);
        EXPECT_EQ(page["isFirstPage"].asBool(), start == 0);
        return page;
    }
};

TEST_F(FetchTest, WhatIsRefused) {
    AddPhotos(25);
    Rig rig;
    int id = -1;
    EXPECT_FALSE(rig.task.Fetch(0, 10, id));
    ASSERT_TRUE(rig.task.Connect());
    EXPECT_FALSE(rig.task.Fetch(0, 10, id)) << "without a query";
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    const std::pair<int, int> ranges[] = {
        {0, 0}, {0, -1}, {0, 1001}, {-1, 10}, {26, 10}, {-2147483647 - 1, 10}, {2147483647, 1000}};
    for (const auto& [start, count] : ranges)
        EXPECT_FALSE(rig.task.Fetch(start, count, id)) << start;
    EXPECT_EQ(id, -1);
    EXPECT_TRUE(rig.task.Fetch(0, 1000, id));
    EXPECT_EQ(id, 3) << "the query took 2, the refused ones nothing";
    Await("FETCH_COMPLETED");
    EXPECT_EQ(platform.CountEvents("FETCH_COMPLETED"), 1);
}

TEST_F(FetchTest, PagesKnowWhetherTheyAreTheLast) {
    const struct {
        int start, count;
        unsigned items;
        bool last;
    } cases[] = {{0, 10, 10, false}, {15, 10, 10, true}, {14, 10, 10, false}, {20, 10, 5, true},
                 {25, 10, 0, true},  {0, 25, 25, true},  {0, 1000, 25, true}};
    AddPhotos(25);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + "+" + std::to_string(c.count));
        const Json::Value page = Page(rig.task, c.start, c.count);
        EXPECT_EQ(page["photos"].size(), c.items);
        EXPECT_EQ(page["isLastPage"].asBool(), c.last);
    }
}

TEST_F(FetchTest, TheNewestComeFirstAndNumbersAreReadToTheirEnd) {
    AddPhotos(5);
    platform.Add(Item{"/opt/storage/usb/other/p.jpg"});
    platform.Add(Item{OnStick("v.mp4"), MEDIA_CONTENT_TYPE_VIDEO});
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    Command(engine, "Query", "S1", "photo");
    EXPECT_EQ(Command(engine, "Fetch", "1st", "2").value, "3");
    EXPECT_EQ(Column(Await("FETCH_COMPLETED")["photos"], "filename"), (Strings{"3.jpg", "2.jpg"}));
    EXPECT_EQ(Command(engine, "Fetch", "first", "1").value, "4") << "no digits read as 0";
    EXPECT_EQ(Column(Await("FETCH_COMPLETED")["photos"], "filename"), Strings{"4.jpg"});
    // What no int holds is not taken for another number.
    for (const char* wrong : {"4294967296", "4294967297", "-4294967295", "99999999999999999999"}) {
        EXPECT_EQ(Command(engine, "Fetch", wrong, "1").value, "0") << wrong;
        EXPECT_EQ(Command(engine, "Fetch", "0", wrong).value, "0") << wrong;
    }
    EXPECT_EQ(Command(engine, "GetCount", "4294967298").value, "0") << "2 is the query's id";
    EXPECT_EQ(Command(engine, "GetCount", "2").value, "5");
}

TEST_F(FetchTest, AJobFetchesFromTheQueryThatIsCurrentWhenItRuns) {
    AddPhotos(2);
    platform.Add(Item{OnStick("song.mp3"), MEDIA_CONTENT_TYPE_MUSIC});
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    HoldWorker(rig.task);
    int fetchId = 0;
    ASSERT_TRUE(rig.task.Fetch(0, 10, fetchId));
    ASSERT_TRUE(rig.task.Query("S1", dorn::MEDIA_TYPE_MUSIC, "", ""));
    jobGate.Open();
    const Json::Value page = Await("FETCH_COMPLETED");
    EXPECT_EQ(page["id"].asInt(), fetchId);
    EXPECT_EQ(Column(page["music"], "filename"), Strings{"song.mp3"});
}

TEST_F(FetchTest, AJobThatRunsAfterDisconnectSendsAPageWithoutItems) {
    AddPhotos(2);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    HoldWorker(rig.task);
    int id = 0;
    ASSERT_TRUE(rig.task.Fetch(0, 10, id));
    ASSERT_TRUE(rig.task.Disconnect());
    jobGate.Open();
    EXPECT_EQ(platform.WaitForEvent("FETCH_COMPLETED").payload,
              "{\"id\":4,\"isFirstPage\":true,\"isLastPage\":true,\"result\":1}\n");
    EXPECT_FALSE(rig.task.Fetch(0, 10, id));
}

// ---- folders ----

TEST_F(FetchTest, FoldersComeBeforeFilesAndTheirNumberShiftsTheRange) {
    // 3 visible folders and 20 files.
    const struct {
        int start, count;
        unsigned folders, files;
        const char* firstFile;
        bool last;
    } cases[] = {{0, 10, 3, 7, "18.jpg", false}, {5, 10, 0, 10, "13.jpg", false},
                 {2, 10, 1, 9, "17.jpg", false}, {0, 3, 3, 0, "", false},
                 {0, 2, 2, 0, "", false},        {3, 1, 0, 1, "15.jpg", false},
                 {1, 2, 2, 0, "", false},        {13, 10, 0, 7, "5.jpg", true},
                 {23, 10, 0, 0, "", true}};
    TempFolder folder;
    FillFolder(folder, 19);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_FOLDER, folder.Path());
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + "+" + std::to_string(c.count));
        const Json::Value page = Page(rig.task, c.start, c.count);
        EXPECT_TRUE(page["folders"].isArray() && page["files"].isArray());
        EXPECT_EQ(page["folders"].size(), c.folders);
        EXPECT_EQ(page["files"].size(), c.files);
        EXPECT_EQ(page["files"].get(Json::Value::ArrayIndex{0}, Json::Value())["name"].asString(),
                  c.firstFile);
        EXPECT_EQ(page["isLastPage"].asBool(), c.last);
        keptRecords += static_cast<int>(c.files);
    }
}

}  // namespace
}  // namespace test
