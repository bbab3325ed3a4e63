// Queries, their scan wait, and counts.
#include "PluginTest.h"

namespace test {
namespace {

constexpr const char* kWaiting = "Sync is Not Complete. It will be checked 1 Second after \n";

class QueryTest : public PluginTest {
protected:
    QueryTest() {
        AddStick();
        AddPhotos(3);
        for (int i = 0; i < 2; ++i) platform.Add(Item{OnStick("m.mp3"), MEDIA_CONTENT_TYPE_MUSIC});
        platform.Add(Item{OnStick("v.mp4"), MEDIA_CONTENT_TYPE_VIDEO});
        platform.Add(Item{"/opt/storage/usb/other/p.jpg"});
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
}

TEST_F(QueryTest, EachKindIsCounted) {
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    int id = 0;
    for (const auto& [word, count] : {std::make_pair("music", "2"), std::make_pair("photo", "3"),
                                      std::make_pair("video", "1")}) {
        SCOPED_TRACE(word);
        EXPECT_EQ(Command(engine, "Query", "S1", word, "$USB_DIR/ignored").value, "1");
        EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload,
                  std::string("{\"count\":") + count + ",\"result\":1}\n");
        EXPECT_EQ(Command(engine, "GetCount", std::to_string(id += 2)).value, count);
    }
    EXPECT_EQ(Command(engine, "GetCount", "17").value, "0");
    platform.Fail("media_filter_create", 0);
    EXPECT_EQ(Command(engine, "GetCount", "2tail").value, "0") << "a failed count of a known query";
}

TEST_F(QueryTest, AnUnknownKindFails) {
    Rig rig;
    dorn::QueryInfo query;
    query.mediaType = static_cast<MediaType>(5);
    rig.task.m_Query(query);
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":0}\n");
}

// ---- counting folders ----

TEST_F(QueryTest, AFolderCountsItsKnownItemsAndVisibleSubfolders) {
    TempFolder folder;
    FillFolder(folder, 1);
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
    EXPECT_EQ(Await("QUERY_COMPLETED")["count"].asInt(), 5);
    int count = 0;
    EXPECT_TRUE(rig.task.GetCount(1, count));
    EXPECT_EQ(count, 5);
}

TEST_F(QueryTest, TheLastOfSeveralMatchingFoldersCountsAndAnUnknownOneIsNoError) {
    TempFolder folder;
    FillFolder(folder, 1);
    platform.Add(Folder{"F1-again", folder.Path()});
    ConnectedRig rig;
    dorn::QueryInfo query;
    query.storageId = "DISK";
    query.folderPath = folder.Path();
    std::string id;
    EXPECT_TRUE(rig.task.m_GetFolderId(id, query));
    EXPECT_EQ(id, "F1-again");
    query.folderPath = folder / ".a";
    id = "as it was";
    EXPECT_TRUE(rig.task.m_GetFolderId(id, query));
    EXPECT_EQ(id, "as it was");
    int count = 5;
    EXPECT_TRUE(rig.task.m_GetFolderCount(count, query));
    EXPECT_EQ(count, 5) << "nothing is in it, and the caller's value is added to";
}

TEST_F(QueryTest, ANameThatIsTooLongCostsItselfAlone) {
    TempFolder folder;
    FillFolder(folder, 1);
    const TooLongName there;
    keptRecords = 2;
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"count\":5,\"result\":1}\n");
    int id = 0;
    ASSERT_TRUE(rig.task.Fetch(3, 10, id)) << "the count is known to pages, too";
    ASSERT_TRUE(rig.task.Fetch(0, 10, id));
    Await("FETCH_COMPLETED");
    const Json::Value page = Await("FETCH_COMPLETED");
    EXPECT_EQ(page["folders"].size() + page["files"].size(), 5u);
}

TEST_F(QueryTest, AFolderMissingOnDiskFails) {
    CPlivEngineContentsMgr engine;
    platform.Add(Folder{"F9", "/opt/storage/usb/sda1/gone"});
    Command(engine, "Connect");
    EXPECT_EQ(Command(engine, "Query", "S1", "folder", "$USB_DIR/sda1/gone").value, "1");
    EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":0}\n");
    EXPECT_EQ(platform.CountLog(" folderId is  :  F9 \n"), 1) << "the path was not turned back";
}

// ---- the scan wait ----

TEST_F(QueryTest, OnlyAFolderAndTheExactWordAskForTheScansEnd) {
    TempFolder folder;
    FillFolder(folder, 1);
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
                 {"DISK", dorn::MEDIA_TYPE_FOLDER, "", 5, true}};
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
    EXPECT_EQ(platform.CountLog(kWaiting), 0);
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
    EXPECT_EQ(platform.CallCount("media_content_scan_folder"), 0);
}

TEST_F(QueryTest, AScanThatNeverEndsTimesOut) {
    TempFolder folder;
    FillFolder(folder, 1);
    for (const char* id : {"S1", "DISK"}) platform.SetScanStatus(id, MEDIA_STORAGE_SCAN_RUNNING);
    platform.ScanFoldersLater();
    ConnectedRig rig;
    for (MediaType type : {dorn::MEDIA_TYPE_PHOTO, dorn::MEDIA_TYPE_FOLDER}) {
        platform.ForgetLog();
        platform.ForgetCalls();
        ASSERT_TRUE(rig.task.Query(type == 1 ? "DISK" : "S1", type, folder.Path(), "true"));
        EXPECT_EQ(platform.WaitForEvent("QUERY_COMPLETED").payload, "{\"result\":-10}\n");
        EXPECT_EQ(platform.CountLog(kTimeOut), 1);
        EXPECT_EQ(platform.CallCount("media_info_get_media_count_from_db"), 0);
    }
    // The folder's scan ends long after the query has been answered, and harms nobody.
    EXPECT_EQ(platform.CompleteFolderScans(), 1);
}

// The scan ends inside the call, which lasts until the time-out has been brought: when the worker
// looks, both bytes are set.
TEST_F(QueryTest, AScanThatEndsTogetherWithTheTimeOutIsLate) {
    TempFolder folder;
    FillFolder(folder, 1);
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
    FillFolder(folder, 1);
    platform.SetScanStatus("DISK", MEDIA_STORAGE_SCAN_STOPPED);
    ConnectedRig rig;
    for (const bool later : {false, true}) {
        platform.ForgetCalls();
        platform.ForgetLog();
        if (later) platform.ScanFoldersLater();
        ASSERT_TRUE(rig.task.Query("DISK", dorn::MEDIA_TYPE_FOLDER, folder.Path(), ""));
        if (later) {
            EXPECT_TRUE(platform.WaitForLog(kWaiting, 2));
            EXPECT_EQ(platform.CompleteFolderScans(), 1);
        }
        EXPECT_EQ(Await("QUERY_COMPLETED")["count"].asInt(), 5);
        EXPECT_EQ(platform.CallCount("media_storage_get_scan_status"), 1) << "read once only";
    }
}

}  // namespace
}  // namespace test
