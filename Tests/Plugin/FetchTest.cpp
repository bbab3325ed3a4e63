// Pages of media and of folders.
#include "CMediaContentFolder.h"
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
        EXPECT_TRUE(
            platform.HasLog(kProgress, "Fetch Finished Result: 1, Id: " + std::to_string(id)));
        return page;
    }
    // Folders a, b and c (and others that never show) with `files` photos, newest last.
    void FillFolder(TempFolder& folder, int files) {
        for (const char* name : {"a", ".a", "b", "c", "..x"}) folder.MakeFolder(name);
        folder.MakeFile("plain");
        std::filesystem::create_symlink(folder / "a", folder / "link");
        platform.Add(Storage{"DISK", folder.Path()});
        platform.Add(Folder{"F1", folder.Path()});
        AddPhotos(files, folder.Path());
    }
};

TEST_F(FetchTest, WhatIsRefused) {
    AddPhotos(25);
    Rig rig;
    int id = -1;
    EXPECT_FALSE(rig.task.Fetch(0, 10, id));
    EXPECT_TRUE(platform.HasLog(kProgress, " Media is NOT Connected"));
    ASSERT_TRUE(rig.task.Connect());
    EXPECT_FALSE(rig.task.Fetch(0, 10, id));
    EXPECT_TRUE(platform.HasLog(kProgress, " unavailable query ID \n"));
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    const std::pair<int, int> ranges[] = {
        {0, 0}, {0, -1}, {0, 1001}, {-1, 10}, {26, 10}, {-2147483647 - 1, 10}, {2147483647, 1000}};
    for (const auto& range : ranges) {
        platform.ForgetLog();
        EXPECT_FALSE(rig.task.Fetch(range.first, range.second, id)) << range.first;
        EXPECT_TRUE(platform.HasLog(kProgress, " Error Invalid Parameter \n"));
    }
    EXPECT_EQ(id, -1);
    EXPECT_TRUE(rig.task.Fetch(0, 1000, id));
    EXPECT_EQ(id, 3) << "the query took 2, the refused ones nothing";
    Await("FETCH_COMPLETED");
    EXPECT_EQ(platform.CountEvents("FETCH_COMPLETED"), 1);
}

TEST_F(FetchTest, PagesKnowWhetherTheyAreFirstAndLast) {
    struct Case {
        int start, count, items;
        bool first, last;
    };
    const Case cases[] = {{0, 10, 10, true, false},   {15, 10, 10, false, true},
                          {14, 10, 10, false, false}, {20, 10, 5, false, true},
                          {25, 10, 0, false, true},   {0, 25, 25, true, true},
                          {0, 1000, 25, true, true}};
    AddPhotos(25);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + "+" + std::to_string(c.count));
        const Json::Value page = Page(rig.task, c.start, c.count);
        EXPECT_EQ(page["photos"].size(), static_cast<unsigned>(c.items));
        EXPECT_EQ(page["isFirstPage"].asBool(), c.first);
        EXPECT_EQ(page["isLastPage"].asBool(), c.last);
    }
}

TEST_F(FetchTest, TheNewestComeFirst) {
    AddPhotos(5);
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    Command(engine, "Query", "S1", "photo");
    EXPECT_EQ(Command(engine, "Fetch", "1st", "2").value, "3");
    EXPECT_EQ(Column(Await("FETCH_COMPLETED")["photos"], "filename"), (Strings{"3.jpg", "2.jpg"}));
    EXPECT_EQ(Command(engine, "Fetch", "first", "1").value, "4") << "no digits read as 0";
    EXPECT_EQ(Column(Await("FETCH_COMPLETED")["photos"], "filename"), Strings{"4.jpg"});
    const std::vector<Use> uses = platform.Uses("media_info_foreach_media_from_db");
    ASSERT_EQ(uses.size(), 2u);
    EXPECT_EQ(uses[0].filter.storage, Text("S1"));
    EXPECT_EQ(uses[0].filter.condition, Text("MEDIA_TYPE=0"));
    EXPECT_EQ(uses[0].filter.collation, 0);
    EXPECT_EQ(uses[0].filter.order, 1);
    EXPECT_EQ(uses[0].filter.orderKey, Text("MEDIA_ADDED_TIME"));
    EXPECT_EQ(uses[0].filter.orderCollation, 0);
    EXPECT_EQ(uses[0].filter.offset, 1);
    EXPECT_EQ(uses[0].filter.count, 2);
}

TEST_F(FetchTest, NumbersThatNoIntHoldsAreRefusedAndNotTakenForOthers) {
    AddPhotos(5);
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    Command(engine, "Query", "S1", "photo");
    for (const char* wrong : {"4294967296", "4294967297", "-4294967295", "99999999999999999999"}) {
        EXPECT_EQ(Command(engine, "Fetch", wrong, "1").value, "0") << wrong;
        EXPECT_EQ(Command(engine, "Fetch", "0", wrong).value, "0") << wrong;
    }
    EXPECT_EQ(Command(engine, "GetCount", "4294967298").value, "0") << "2 is the query's id";
    EXPECT_EQ(Command(engine, "GetCount", "2").value, "5");
}

TEST_F(FetchTest, AJobFetchesFromTheQueryThatIsCurrentWhenItRuns) {
    AddPhotos(2);
    platform.Add(Music(OnStick("song.mp3")));
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
    EXPECT_TRUE(platform.HasLog(kProgress, " unavailable query ID \n"));
    EXPECT_TRUE(platform.HasLog(kProgress, "FAILED TO SET MEDIA TYPE"));
    EXPECT_FALSE(rig.task.Fetch(0, 10, id));
}

TEST_F(FetchTest, AFailedCountLeavesTheTotalAtNothing) {
    AddPhotos(5);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    platform.Fail("media_info_get_media_count_from_db", 1, MEDIA_CONTENT_ERROR_DB_BUSY);
    int id = 0;
    EXPECT_FALSE(rig.task.Fetch(1, 10, id));
    platform.Fail("media_info_get_media_count_from_db", 0, MEDIA_CONTENT_ERROR_DB_BUSY);
    const Json::Value page = Page(rig.task, 0, 2);
    EXPECT_EQ(page["photos"].size(), 2u);
    EXPECT_TRUE(page["isLastPage"].asBool()) << "of a total of 0";
}

// ---- folders ----

TEST_F(FetchTest, FoldersComeBeforeFilesAndTheirNumberShiftsTheRange) {
    struct Case {
        int start, count;
        unsigned folders, files;
        int offset, limit;  // -1: the files are not asked for
        bool last;
    };
    // 3 visible folders and 20 files.
    const Case cases[] = {
        {0, 10, 3, 7, 0, 7, false},  {5, 10, 0, 10, 5, 10, false}, {2, 10, 1, 9, 1, 9, false},
        {0, 3, 3, 0, -1, -1, false}, {0, 2, 2, 0, -1, -1, false},  {3, 1, 0, 1, 3, 1, false},
        {1, 2, 2, 0, -1, -1, false}, {13, 10, 0, 7, 13, 10, true}, {23, 10, 0, 0, 23, 10, true}};
    TempFolder folder;
    FillFolder(folder, 20);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_FOLDER, folder.Path());
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + "+" + std::to_string(c.count));
        platform.ForgetCalls();
        const Json::Value page = Page(rig.task, c.start, c.count);
        EXPECT_EQ(page["folders"].size(), c.folders);
        EXPECT_TRUE(page["folders"].isArray() && page["files"].isArray());
        EXPECT_EQ(page["files"].size(), c.files);
        EXPECT_EQ(page["isFirstPage"].asBool(), c.start == 0);
        EXPECT_EQ(page["isLastPage"].asBool(), c.last);
        keptRecords += static_cast<int>(c.files);
        const std::vector<Use> uses = platform.Uses("media_folder_foreach_media_from_db");
        ASSERT_EQ(uses.size(), c.offset < 0 ? 0u : 1u);
        if (uses.empty()) continue;
        EXPECT_EQ(uses[0].folderId, "F1");
        EXPECT_EQ(uses[0].filter.offset, c.offset);
        EXPECT_EQ(uses[0].filter.count, c.limit);
        EXPECT_EQ(uses[0].filter.condition, Text(kAnyMedia));
        EXPECT_EQ(uses[0].filter.collation, 0);
        EXPECT_EQ(uses[0].filter.order, 1);
        EXPECT_EQ(uses[0].filter.orderKey, Text("MEDIA_ADDED_TIME"));
        if (c.files > 0) {
            EXPECT_EQ(page["files"][0]["name"].asString(), std::to_string(19 - c.offset) + ".jpg");
        }
    }
}

TEST_F(FetchTest, AFolderThatTheDatabaseDoesNotKnowShowsItsSubfolders) {
    TempFolder folder;
    FillFolder(folder, 0);
    folder.MakeFolder("a/inner");
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_FOLDER, folder / "a");
    EXPECT_EQ(Column(Page(rig.task, 0, 10)["folders"], "name"), Strings{"inner"});
}

TEST_F(FetchTest, AListedFolderRecordMayBeNull) {
    std::vector<boost::shared_ptr<dorn::CMediaContentFolder>> list;
    EXPECT_TRUE(CPlivTaskContentsMgr::s_GetMediaFolderCallback(nullptr, &list));
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(platform.HasLog(kProgress, " Folder is NULL \n"));
}

// ---- failing platform calls ----

struct PageFault {
    const char* function;
    int nth;  // counted from the fetch on: the total is counted first
    unsigned items;
    const char* message;  // null: none of its own
};

class FetchFaultTest : public FetchTest {
protected:
    // Fetches the first page with each call failing: it is sent, and no handle is left but the
    // files' records.
    void Check(CPlivTaskContentsMgr& task, const std::vector<PageFault>& faults, int count,
               const char* key) {
        for (const PageFault& c : faults) {
            SCOPED_TRACE(c.function + std::to_string(c.nth));
            platform.ForgetLog();
            platform.Fail(c.function, c.nth, MEDIA_CONTENT_ERROR_DB_BUSY);
            EXPECT_EQ(Page(task, 0, count)[key].size(), c.items);
            platform.FailNoMore();
            EXPECT_TRUE(!c.message || platform.HasLog(c.message));
            auto left = platform.LiveHandles();
            left.erase("media_info_s");
            EXPECT_TRUE(left.empty()) << left.begin()->first;
        }
    }
};

TEST_F(FetchFaultTest, EachFailingCallOfAMediaPageStillSendsThePage) {
    AddPhotos(4);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_PHOTO);
    Check(rig.task,
          {{"media_filter_create", 2, 0, "FAILED TO media_filter_create"},
           {"media_filter_set_storage", 2, 0, "FAILED to media_filter_set_storage"},
           {"media_filter_set_condition", 2, 0, "FAILED to media_filter_set_condition"},
           {"media_filter_set_order", 1, 0, "FAILED to media_filter_set_order"},
           {"media_filter_set_offset", 1, 4, "FAILED TO media_filter_set_offset"},
           {"media_info_foreach_media_from_db", 1, 0, "FAILED to media_info_foreach_media_from_db"},
           {"media_filter_destroy", 2, 2, "FAILED TO media_filter_destroy"},
           {"media_info_clone", 0, 2, "CMediaContent - failed to media_info_get_media_id"},
           {"media_info_get_image", 1, 2, "CMediaContentImage - failed to media_info_get_image"},
           {"image_meta_destroy", 0, 2, nullptr}},
          2, "photos");
}

TEST_F(FetchFaultTest, EachFailingCallOfAFolderPageStillSendsThePage) {
    TempFolder folder;
    FillFolder(folder, 6);
    ConnectedRig rig;
    Query(rig.task, dorn::MEDIA_TYPE_FOLDER, folder.Path());
    Check(rig.task,
          {{"media_filter_create", 3, 0, "FAILED TO media_filter_create "},
           {"media_filter_create", 4, 0, "failed to meida_filter_create"},
           {"media_filter_set_storage", 2, 0, "folderId is NULL or Wrong"},
           {"media_filter_set_condition", 4, 4, nullptr},
           {"media_filter_set_order", 1, 4, "failed to media_filter_set_order"},
           {"media_filter_set_offset", 1, 6, "FAILED TO media_filter_set_offset"},
           {"media_folder_foreach_media_from_db", 1, 0,
            "failed to media_folder_foreach_media_from_db"}},
          7, "files");
    keptRecords = 14;
}

}  // namespace
}  // namespace test
