// Queries, their scan wait, and counts.
#include <atomic>

#include "PluginTest.h"

namespace test {
namespace {

constexpr const char* kWaiting = "Sync is Not Complete. It will be checked 1 Second after \n";

class QueryTest : public PluginTest {
protected:
    QueryTest() {
        AddStick();
        AddPhotos(3);
        for (int i = 0; i < 2; ++i) platform.Add(Music(OnStick("m.mp3"), i));
        platform.Add(Video(OnStick("v.mp4")));
        platform.Add(Photo("/opt/storage/usb/other/p.jpg"));
    }

    // A browsed folder on disk that the database knows as F1: 3 items, 1 visible subfolder.
    void FillFolder(TempFolder& folder) {
        platform.Add(Storage{"DISK", folder.Path()});
        platform.Add(Folder{"F1", folder.Path()});
        platform.Add(Folder{"F2", folder / "sub"});
        folder.MakeFolder("sub");
        folder.MakeFolder(".hidden");
        folder.MakeFile("file");
        platform.Add(Photo(folder / "a.jpg"));
        platform.Add(Sound(folder / "b.amr"));
        platform.Add(Music(folder / "c.mp3"));
        platform.Add(Photo(folder / "sub/d.jpg"));
        platform.Add(Item(folder / "e.txt", MEDIA_CONTENT_TYPE_OTHERS));
    }
};

// ---- registering ----

TEST_F(QueryTest, IdsTellFoldersFromMediaAndNeverRepeat) {
    CPlivTaskContentsMgr task;
    const int folder = dorn::MEDIA_TYPE_FOLDER, photo = dorn::MEDIA_TYPE_PHOTO, fetch = 0;
    const std::pair<int, int> steps[] = {{photo, 2},  {folder, 3}, {fetch, 4},   {photo, 6},
                                         {fetch, 7},  {photo, 8},  {folder, 9},  {folder, 11},
                                         {photo, 12}, {fetch, 13}, {folder, 15}, {9, 16}};
    for (const auto& step : steps) EXPECT_EQ(task.m_MakeRequestId(step.first), step.second);
    EXPECT_TRUE(platform.HasLog(kTrace, " mediaType : 3"));
}

TEST_F(QueryTest, RefusedQueriesQueueNothing) {
    Rig rig;
    EXPECT_FALSE(rig.task.Query("S1", dorn::MEDIA_TYPE_PHOTO, "", ""));
    EXPECT_TRUE(platform.HasLog(kProgress, " Media is NOT Connected"));
    ASSERT_TRUE(rig.task.Connect());
    EXPECT_FALSE(rig.task.Query("", dorn::MEDIA_TYPE_PHOTO, "", ""));
    EXPECT_FALSE(rig.task.Query("S1", dorn::MEDIA_TYPE_NONE, "", ""));
    EXPECT_EQ(platform.CountLog(" Error Invalid Parameter \n"), 2);
    EXPECT_FALSE(platform.HasLog(" m_processMutex.Lock() \n"));
    int count = 0;
    EXPECT_FALSE(rig.task.GetCount(2, count));
    EXPECT_TRUE(platform.HasLog(kProgress, " FAILED TO FIND QueryInfo \n"));
    EXPECT_TRUE(platform.HasLog(kProgress, " unavailable query ID \n"));
    EXPECT_TRUE(rig.task.Query("S1", dorn::MEDIA_TYPE_PHOTO, "", ""));
    EXPECT_TRUE(platform.HasLog(kTrace, " m_processMutex.Lock() \n"));
    Await("QUERY_COMPLETED");
    EXPECT_EQ(platform.CountEvents("QUERY_COMPLETED"), 1);
    EXPECT_TRUE(rig.task.GetCount(2, count)) << "the refused ones took no id";
}

TEST_F(QueryTest, EachKindCountsWithItsCondition) {
    struct Case {
        const char* word;
        const char* condition;
        int count;
    };
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    int id = 0;
    for (const Case& c : {Case{"music", "MEDIA_TYPE=3", 2},
                          {"photo", "MEDIA_TYPE=0", 3},
                          {"video", "MEDIA_TYPE=1", 1}}) {
        SCOPED_TRACE(c.word);
        platform.ForgetCalls();
        EXPECT_EQ(Command(engine, "Query", "S1", c.word, "$USB_DIR/ignored").value, "1");
        EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload,
                  "{\"count\":" + std::to_string(c.count) + ",\"result\":1}\n");
        const std::vector<Use> uses = platform.Uses("media_info_get_media_count_from_db");
        ASSERT_EQ(uses.size(), 1u);
        EXPECT_EQ(uses[0].filter.storage, Text("S1"));
        EXPECT_EQ(uses[0].filter.condition, Text(c.condition));
        EXPECT_EQ(uses[0].filter.collation, 0);
        EXPECT_EQ(Command(engine, "GetCount", std::to_string(id += 2)).value,
                  std::to_string(c.count));
        EXPECT_EQ(platform.CallCount("media_storage_get_scan_status"), 0) << "not asked to wait";
    }
    EXPECT_TRUE(platform.HasLog(kTrace, " Media Count : 3"));
    EXPECT_EQ(Command(engine, "GetCount", "17").value, "0");
    platform.Fail("media_filter_create", 0, MEDIA_CONTENT_ERROR_DB_FAILED);
    EXPECT_EQ(Command(engine, "GetCount", "2tail").value, "0") << "a failed count of a known query";
    EXPECT_TRUE(platform.HasLog("[GetCount] CMD Executed(1)"));
}

TEST_F(QueryTest, AnUnknownKindFails) {
    Rig rig;
    std::string condition = "as it was";
    EXPECT_FALSE(rig.task.m_SetMediaType(dorn::MEDIA_TYPE_FOLDER, condition));
    EXPECT_EQ(condition, "as it was");
    EXPECT_TRUE(platform.HasLog("[m_SetMediaType] - Error - Invalid Media Type"));
    dorn::QueryInfo query;
    query.mediaType = static_cast<MediaType>(5);
    rig.task.m_Query(query);
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":0}\n");
}

// ---- counting folders ----

TEST_F(QueryTest, AFolderCountsItsKnownItemsAndVisibleSubfolders) {
    TempFolder folder;
    FillFolder(folder);
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
    EXPECT_EQ(Await("QUERY_COMPLETED")["count"].asInt(), 4);
    int count = 0;
    EXPECT_TRUE(rig.task.GetCount(1, count));
    EXPECT_EQ(count, 4);
    EXPECT_TRUE(platform.HasLog(kTrace, " folderId is  :  F1 \n"));
    EXPECT_TRUE(platform.HasLog(kTrace, "Count is 4"));
    const auto folders = platform.Uses("media_folder_foreach_folder_from_db");
    ASSERT_EQ(folders.size(), 2u) << "the query's count and the one asked for";
    EXPECT_EQ(folders[0].filter.storage, Text("DISK"));
    EXPECT_EQ(folders[0].filter.condition, Text("FOLDER_STORAGE_TYPE = 1"));
    EXPECT_EQ(folders[0].filter.collation, 1);
    const auto items = platform.Uses("media_folder_get_media_count_from_db");
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].folderId, "F1");
    EXPECT_EQ(items[0].filter.condition, Text(kAnyMedia));
    EXPECT_EQ(items[0].filter.collation, 0);
    EXPECT_EQ(items[0].filter.storage, Text());
}

TEST_F(QueryTest, TheLastOfSeveralMatchingFoldersCountsAndAnUnknownOneIsNoError) {
    TempFolder folder;
    FillFolder(folder);
    platform.Add(Folder{"F1-again", folder.Path()});
    ConnectedRig rig;
    dorn::QueryInfo query;
    query.storageId = "DISK";
    query.folderPath = folder.Path();
    std::string id;
    EXPECT_TRUE(rig.task.m_GetFolderId(id, query));
    EXPECT_EQ(id, "F1-again");
    query.folderPath = folder / ".hidden";
    id = "as it was";
    EXPECT_TRUE(rig.task.m_GetFolderId(id, query));
    EXPECT_EQ(id, "as it was");
    int count = 5;
    EXPECT_TRUE(rig.task.m_GetFolderCount(count, query));
    EXPECT_EQ(count, 5) << "nothing is in it, and the caller's value is added to";
}

TEST_F(QueryTest, ANameThatIsTooLongCostsItselfAlone) {
    TempFolder folder;
    FillFolder(folder);
    const TooLongName there;
    keptRecords = 3;
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"count\":4,\"result\":1}\n");
    int id = 0;
    ASSERT_TRUE(rig.task.Fetch(3, 10, id)) << "the count is known to pages, too";
    ASSERT_TRUE(rig.task.Fetch(0, 10, id));
    Await("FETCH_COMPLETED");
    const Json::Value page = Await("FETCH_COMPLETED");
    EXPECT_EQ(page["folders"].size() + page["files"].size(), 4u);
    EXPECT_TRUE(platform.HasLog(kProgress, "Failed while reading entries!!, " + folder.Path()));
}

TEST_F(QueryTest, AFolderMissingOnDiskFails) {
    CPlivEngineContentsMgr engine;
    platform.Add(Folder{"F9", "/opt/storage/usb/sda1/gone"});
    Command(engine, "Connect");
    EXPECT_EQ(Command(engine, "Query", "S1", "folder", "$USB_DIR/sda1/gone").value, "1");
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":0}\n");
    EXPECT_TRUE(platform.HasLog(kTrace, " folderId is  :  F9 \n"))
        << "the path was not turned back";
    EXPECT_TRUE(platform.HasLog(kProgress, "FAILED TO OPEN DIR"));
}

// ---- the scan wait ----

TEST_F(QueryTest, OnlyAFolderAndTheExactWordAskForTheScansEnd) {
    TempFolder folder;
    FillFolder(folder);
    const struct {
        const char* storage;
        MediaType type;
        const char* option;
        int count;
        bool asks;
    } cases[] = {{"S1", dorn::MEDIA_TYPE_PHOTO, "", 3, false},
                 {"S1", dorn::MEDIA_TYPE_PHOTO, "TRUE", 3, false},
                 {"S1", dorn::MEDIA_TYPE_PHOTO, "true ", 3, false},
                 {"S1", dorn::MEDIA_TYPE_PHOTO, "1", 3, false},
                 {"S1", dorn::MEDIA_TYPE_PHOTO, "true", 3, true},
                 {"DISK", dorn::MEDIA_TYPE_FOLDER, "", 4, true}};
    ConnectedRig rig;
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.storage) + " " + c.option);
        platform.ForgetCalls();
        ASSERT_TRUE(rig.task.Query(c.storage, c.type, folder.Path(), c.option));
        EXPECT_EQ(Await("QUERY_COMPLETED")["count"].asInt(), c.count);
        EXPECT_EQ(platform.CallCount("media_storage_get_scan_status"), c.asks ? 1 : 0);
        EXPECT_EQ(platform.CallCount("media_content_scan_folder"), 0)
            << "a complete scan is enough";
    }
    EXPECT_FALSE(platform.HasLog(kWaiting));
}

TEST_F(QueryTest, AMediaQueryPollsUntilTheScanIsComplete) {
    dorn::SetPauseUnit(std::chrono::milliseconds(100));
    platform.SetScanStatus("S1", MEDIA_STORAGE_SCAN_RUNNING);
    std::atomic<int> polls{0};
    platform.OnCall("media_storage_get_scan_status", [&] {
        if (++polls == 4) platform.SetScanStatus("S1", MEDIA_STORAGE_SCAN_COMPLETE);
    });
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("S1", dorn::MEDIA_TYPE_PHOTO, "", "true"));
    EXPECT_EQ(Await("QUERY_COMPLETED")["count"].asInt(), 3);
    EXPECT_EQ(platform.CountLog(kWaiting), 2) << "one look, then one a second";
    EXPECT_TRUE(platform.HasLog(kTrace, kWaiting));
    EXPECT_EQ(platform.CallCount("media_content_scan_folder"), 0);
}

TEST_F(QueryTest, AScanThatNeverEndsTimesOut) {
    TempFolder folder;
    FillFolder(folder);
    for (const char* id : {"S1", "DISK"}) platform.SetScanStatus(id, MEDIA_STORAGE_SCAN_RUNNING);
    platform.SetFolderScan(FolderScan::Later);
    ConnectedRig rig;
    for (MediaType type : {dorn::MEDIA_TYPE_PHOTO, dorn::MEDIA_TYPE_FOLDER}) {
        platform.ForgetLog();
        platform.ForgetCalls();
        ASSERT_TRUE(rig.task.Query(type == 1 ? "DISK" : "S1", type, folder.Path(), "true"));
        EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":-10}\n");
        EXPECT_EQ(platform.CountLog(" TimeOut Occured \n"), 1);
        EXPECT_TRUE(platform.HasLog(kProgress, " TimeOut Occured \n"));
        EXPECT_TRUE(platform.HasLog("Query Finished Result: -10, Count: 0"));
        EXPECT_EQ(platform.CallCount("media_info_get_media_count_from_db"), 0);
    }
    // The folder's scan ends long after the query has been answered, and harms nobody.
    EXPECT_EQ(platform.CompleteFolderScans(), 1);
}

// The scan ends inside the call, which lasts until the time-out has been brought: when the worker
// looks, both bytes are set.
TEST_F(QueryTest, AScanThatEndsTogetherWithTheTimeOutIsLate) {
    TempFolder folder;
    FillFolder(folder);
    platform.SetScanStatus("DISK", MEDIA_STORAGE_SCAN_RUNNING);
    platform.OnCall("media_content_scan_folder", [] {
        Gate later;
        const auto open = [](gpointer gate) -> gboolean {
            static_cast<Gate*>(gate)->Open();
            return G_SOURCE_REMOVE;
        };
        g_timeout_add_full(G_PRIORITY_LOW, dorn::ScanTimeoutMilliseconds() + 1, open, &later,
                           nullptr);
        later.Wait();
    });
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":-10}\n");
}

TEST_F(QueryTest, AFolderQueryEndsWithItsFolderScan) {
    dorn::SetPauseUnit(std::chrono::milliseconds(100));
    TempFolder folder;
    FillFolder(folder);
    platform.SetScanStatus("DISK", MEDIA_STORAGE_SCAN_STOPPED);
    ConnectedRig rig;
    for (FolderScan when : {FolderScan::AtOnce, FolderScan::OnOtherThread, FolderScan::Later}) {
        platform.ForgetCalls();
        platform.ForgetLog();
        platform.SetFolderScan(when, MEDIA_CONTENT_ERROR_CANCELLED);  // how it ended is not asked
        ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
        if (when == FolderScan::Later) {
            EXPECT_TRUE(platform.WaitForLog(kWaiting, 2));
            EXPECT_EQ(platform.CompleteFolderScans(), 1);
        }
        EXPECT_EQ(Await("QUERY_COMPLETED")["count"].asInt(), 4);
        EXPECT_EQ(platform.CallCount("media_storage_get_scan_status"), 1) << "read once only";
    }
}

// ---- failing platform calls ----

struct FaultCase {
    const char* function;
    int nth;
    int result;
    int count;
    Strings messages;  // of priority 16 that must come
};

class QueryFaultTest : public QueryTest {
protected:
    // Queries with each call failing: result, count, all error lines, and no handle left.
    void Check(const std::vector<FaultCase>& faults, const char* storage, MediaType type,
               const std::string& folder) {
        ConnectedRig rig;
        for (const FaultCase& c : faults) {
            SCOPED_TRACE(c.function + std::to_string(c.nth));
            platform.ForgetLog();
            platform.Fail(c.function, c.nth, MEDIA_CONTENT_ERROR_DB_BUSY);
            ASSERT_TRUE(rig.task.Query(storage, type, folder, ""));
            const Event event = platform.WaitForEvent("QUERY_COMPLETED");
            platform.FailNoMore();
            const Json::Value payload = Parse(event.payload);
            EXPECT_EQ(payload["result"].asInt(), c.result);
            EXPECT_EQ(payload["count"].asInt(), c.count);
            Strings errors = c.messages;
            errors.push_back("Query Finished Result: " + std::to_string(c.result) +
                             ", Count: " + std::to_string(c.count));
            errors.push_back(event.payload);
            EXPECT_EQ(platform.Messages(kProgress), errors);
            EXPECT_TRUE(platform.LiveHandles().empty());
        }
    }
};

TEST_F(QueryFaultTest, EachFailingCallOfAMediaCount) {
    const int all = 3;
    Check({{"media_filter_create",
            1,
            0,
            0,
            {"FAILED TO media_filter_create", "FAILED TO media_filter_destroy"}},
           {"media_filter_set_storage", 1, 0, 0, {}},
           {"media_filter_set_condition", 1, 0, 0, {}},
           {"media_info_get_media_count_from_db", 1, 0, 0, {}},
           {"media_filter_destroy", 1, 1, all, {"FAILED TO media_filter_destroy"}}},
          "S1", dorn::MEDIA_TYPE_PHOTO, "");
}

TEST_F(QueryFaultTest, EachFailingCallOfAFolderCount) {
    const int all = 4, onDisk = 1;
    TempFolder folder;
    FillFolder(folder);
    Check({{"media_filter_create",
            1,
            1,
            onDisk,
            {"FAILED TO media_filter_create ", "FAILED TO media_filter_destroy"}},
           {"media_filter_create", 2, 1, onDisk, {"FAILED TO media_filter_destroy"}},
           {"media_filter_set_storage", 1, 1, onDisk, {"FAILED TO media_filter_set_storage"}},
           {"media_filter_set_condition", 1, 1, all, {}},
           {"media_folder_foreach_folder_from_db",
            1,
            1,
            onDisk,
            {"Error media_folder_foreach_folder_from_db \n"}},
           {"media_folder_clone", 0, 1, onDisk, {}},
           {"media_folder_get_path", 0, 1, onDisk, {}},
           {"media_folder_get_folder_id", 0, 1, onDisk, {}},
           {"media_filter_set_condition", 2, 1, all + 1, {}},  // without it, all items count
           {"media_folder_get_media_count_from_db",
            1,
            1,
            onDisk,
            {"Error media_folder_get_media_count_from_db \n"}},
           {"media_filter_destroy", 1, 1, all, {"FAILED TO media_filter_destroy"}},
           {"media_filter_destroy", 2, 1, all, {"FAILED TO media_filter_destroy"}}},
          "DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path());
}

}  // namespace
}  // namespace test
