// Devices that come and go, and changes of the database.
#include "CJsonHelper.h"
#include "PluginTest.h"

namespace test {
namespace {

constexpr const char* kNewStick = "/opt/storage/usb/sdb1";

// How a record is told apart in these tests: by its place.
std::string Label(const CMediaStorage& storage) {
    if (storage.GetDeviceClass() != dorn::DEVICE_CLASS_PTP) return storage.GetDeviceMountPath();
    return std::to_string(storage.GetBus()) + ":" + std::to_string(storage.GetAddress());
}

Strings Labels(CPlivTaskContentsMgr& task) {
    Strings labels;
    for (const StoragePtr& storage : StoragesOf(task)) labels.push_back(Label(*storage));
    return labels;
}

class NotificationTest : public PluginTest {
protected:
    // One stick and one camera are attached.
    NotificationTest() {
        AddStick();
        platform.Add(Camera(1, 5));
    }
    std::vector<Event> EventsAfter(size_t count) {
        const std::vector<Event> events = platform.Events();
        return std::vector<Event>(events.begin() + static_cast<long>(count), events.end());
    }
};

// ---- devices ----

struct PlugCase {
    const char* action;
    Device device;
    Strings list;
    const char* event;  // null: none
    Strings reported;   // id, mount path, bus of a camera; empty: an empty record
    Strings messages;
};

const Strings kBoth{kStick, "1:5"};
const Strings kEmptyRecord{"", "", ""};

// clang-format off
const PlugCase kPlugCases[] = {
    {"mounted", Stick(kNewStick), {kStick, "1:5", kNewStick}, "USB_CONNECTED", {"S2", kNewStick,
     ""}, {"ACTION: mounted, PATH: /opt/storage/usb/sdb1, F/S: 0, TYPE: 8",
     "usb_device.mountpath:[/opt/storage/usb/sdb1]\n", "m_AddStorage storageListSize = 2 ",
     "storageList.size(): [3]", "found storagePath: [/opt/storage/usb/sdb1]",
     " UsbScanning is Completed \n"}},
    {"mounted", Stick("/opt/storage/usb/unknown"), {kStick, "1:5", "/opt/storage/usb/unknown"},
     "USB_CONNECTED", {"", "/opt/storage/usb/unknown", ""}, {" TimeOut Occured \n"}},
    {"mounted", Stick("/mnt/disk"), kBoth, "USB_CONNECTED", kEmptyRecord,
     {"USB Storage is not Exist\n"}},
    // The id goes to the first record of that path, the last one is reported.
    {"mounted", Stick(kStick), {kStick, "1:5", kStick}, "USB_CONNECTED", {"", kStick, ""}, {}},
    {"mounted", OfClass(3, kStick), kBoth, "USB_CONNECTED", {"S1", kStick, ""}, {}},
    {"mounted", OfClass(3, "/mnt/x"), kBoth, "USB_CONNECTED", kEmptyRecord, {}},
    {"mounted", Camera(1, 7), {kStick, "1:5", "1:7"}, "USB_CONNECTED", {"", "n/a", "1"},
     {" USB_CAMERA connected...\n", " USB_CAMERA connected.find item success..\n"}},
    {"blocked", Stick(kStick), {"1:5"}, "USB_DISCONNECTED", {"S1", kStick, ""},
     {"ACTION: blocked, PATH: /opt/storage/usb/sda1, F/S: 0, TYPE: 8", "bFound === [1]\n"}},
    {"blocked", Stick(kNewStick), kBoth, "USB_DISCONNECTED", {"", kNewStick, ""},
     {"bFound === [0]\n"}},
    {"blocked", OfClass(3, kStick), {"1:5"}, "USB_DISCONNECTED", {"", kStick, ""},
     {"bFound === [0]\n"}},
    {"blocked", Camera(1, 5), {kStick}, "USB_DISCONNECTED", {"", "n/a", "1"}, {}},
    {"blocked", Camera(2, 5), kBoth, "USB_DISCONNECTED", kEmptyRecord, {}},
    {"added", Camera(2, 5), {kStick, "1:5", "2:5"}, "USB_CONNECTED", {"", "n/a", "2"},
     {"ACTION : [added], is USB_CAMERA...\n"}},
    {"added", Stick(kNewStick), kBoth, nullptr, {}, {"ACTION : [added], not USB_CAMERA...\n"}},
    {"removed", Camera(1, 5), {kStick}, "USB_DISCONNECTED", {"", "n/a", "1"},
     {" USB_CAMERA disconnected...\n", " USB_CAMERA disconnected.find item success..\n"}},
    {"removed", Camera(1, 6), kBoth, "USB_DISCONNECTED", kEmptyRecord, {}},
    {"removed", Stick(kStick), kBoth, nullptr, {}, {"ACTION : [removed], not USB_CAMERA...\n"}},
    {"Mounted", Stick(kNewStick), kBoth, nullptr, {}, {"action is [Mounted]\n"}},
    {"", Camera(1, 5), kBoth, nullptr, {}, {"action is []\n"}},
};
// clang-format on

TEST_F(NotificationTest, WhatEachActionDoesToTheListAndTellsTheClient) {
    platform.Add(Storage{"S2", kNewStick});
    for (const PlugCase& c : kPlugCases) {
        SCOPED_TRACE(std::string(c.action) + " " + c.device.mountPath + " " +
                     std::to_string(c.device.deviceClass));
        ConnectedRig rig;
        platform.ForgetLog();
        const size_t before = platform.Events().size();
        platform.FireUsb(c.device, c.action);
        EXPECT_EQ(Labels(rig.task), c.list);
        for (const std::string& message : c.messages)
            EXPECT_TRUE(platform.HasLog(kProgress, message)) << message;
        const std::vector<Event> events = EventsAfter(before);
        ASSERT_EQ(events.size(), c.event ? 1u : 0u);
        if (!c.event) continue;
        EXPECT_EQ(events[0].name, c.event);
        EXPECT_EQ(events[0].engine, &rig.engine);
        EXPECT_TRUE(platform.HasLog(kProgress, "[" + events[0].name + "]:" + events[0].payload));
        const Json::Value storage = Parse(events[0].payload)["storage"];
        const Strings reported{
            storage["id"].asString(),
            dorn::CJsonHelper::ConvertUsbBasePath(storage["mountPath"].asString(),
                                                  dorn::CM_CONVERT_TO_DEVICE_PATH),
            storage["deviceBus"].asString()};
        EXPECT_EQ(reported, c.reported);
    }
}

TEST_F(NotificationTest, AStickRecordedForTheThirdPassIsPairedAndSaidToBeLate) {
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Disconnect());  // which cuts pauses short, but only its own connection's
    ASSERT_TRUE(rig.task.Connect());
    const int listings = platform.CallCount("media_storage_foreach_storage_from_db");
    platform.Add(Storage{"S2", kNewStick, MEDIA_STORAGE_SCAN_COMPLETE, listings + 3});
    platform.ForgetLog();
    platform.FireUsb(Stick(kNewStick), "mounted");
    EXPECT_EQ(Await("USB_CONNECTED")["storage"]["id"].asString(), "S2");
    EXPECT_EQ(platform.CountLog(" TimeOut Occured \n"), 1);
    EXPECT_FALSE(platform.HasLog(" UsbScanning is Completed \n"));
}

TEST_F(NotificationTest, AFailingPlatformNeverKeepsADeviceFromBeingTold) {
    for (const char* call :
         {"media_filter_create", "media_storage_foreach_storage_from_db", "media_storage_clone",
          "media_storage_get_path", "media_storage_get_storage_id", "media_filter_destroy",
          "usb_device_get_serial", "usb_device_get_mountpath", "usb_device_get_class"}) {
        SCOPED_TRACE(call);
        ConnectedRig rig;
        platform.Fail(call, 0, MEDIA_CONTENT_ERROR_DB_BUSY);
        platform.FireUsb(Stick(kNewStick), "mounted");
        Await("USB_CONNECTED");
        platform.FireUsb(Stick(kNewStick), "blocked");
        Await("USB_DISCONNECTED");
        EXPECT_TRUE(platform.LiveHandles().empty());
        platform.FailNoMore();
    }
}

TEST_F(NotificationTest, AnUnlistedStickIsReportedAsTheDeviceTellsIt) {
    ConnectedRig rig;
    Device stick = Stick(kNewStick);
    stick.product = "Gone";
    stick.fstype = FSTYPE_EXT4;
    platform.FireUsb(stick, "blocked");
    const Json::Value payload = Await("USB_DISCONNECTED");
    EXPECT_EQ(payload.getMemberNames(), Strings{"storage"});
    const Json::Value storage = payload["storage"];
    EXPECT_EQ(storage["name"].asString(), "Gone");
    EXPECT_EQ(storage["fileSystem"].asString(), "EXT4");
    EXPECT_EQ(storage["vendor"].asString(), "Maker");
    EXPECT_EQ(storage["type"].asString(), "msc");
    EXPECT_EQ(platform.LiveHandles()["media_storage_s"], 0);
}

TEST_F(NotificationTest, ACameraAddedTwiceGoesWithBothRecords) {
    ConnectedRig rig;
    platform.FireUsb(Camera(1, 5), "added");
    Device twin = Camera(1, 5);
    twin.serial = "S-2";
    platform.FireUsb(twin, "added");
    EXPECT_EQ(Labels(rig.task), (Strings{kStick, "1:5", "1:5", "1:5"}));
    platform.FireUsb(Camera(1, 5), "removed");
    ASSERT_EQ(Labels(rig.task), (Strings{kStick, "1:5"}));
    EXPECT_EQ(StoragesOf(rig.task)[1]->GetSerial(), "S-2");
    EXPECT_EQ(platform.CountLog(" USB_CAMERA disconnected.find item success..\n"), 2);
    EXPECT_EQ(platform.CountEvents("USB_DISCONNECTED"), 1);
}

TEST_F(NotificationTest, NothingIsDoneWithoutActionOrReceiver) {
    ConnectedRig rig;
    platform.ForgetCalls();
    platform.FireUsb(Stick(kStick), nullptr);
    char mounted[] = "mounted";
    CPlivTaskContentsMgr::s_USBConnctedCallback(nullptr, mounted, nullptr);
    EXPECT_EQ(platform.CountLog("cb error\n"), 2);
    EXPECT_TRUE(platform.Calls().empty());
    EXPECT_TRUE(platform.Events().empty());
}

TEST_F(NotificationTest, WhatIsSaidOfADevice) {
    ConnectedRig rig;
    platform.ForgetLog();
    platform.FireUsb(Stick(kStick), "blocked");
    Strings block;
    bool formatKept = false;
    for (const LogLine& line : platform.Log()) {
        if (line.priority == kTrace) block.push_back(line.message);
        formatKept |= line.format.find("connected [%b]=======\n") != std::string::npos;
    }
    EXPECT_TRUE(formatKept);
    ASSERT_GE(block.size(), 3u);
    const Strings device(block.begin() + 1, block.end());
    EXPECT_EQ(device,
              (Strings{"==================================================\n",
                       "<usb_device_h info>\n", "protocol : 80\n", "bus : 1\n", "address : 2\n",
                       "number : 1\n", "manufacturer : Maker\n", "product : Model\n",
                       "serial : S-1\n", "partlabel : LABEL\n", "DISCONNECTED"}));
    EXPECT_TRUE(platform.HasLog(kProgress, "DISCONNECTED"));
    EXPECT_EQ(platform.Log().front().message.find("startTime = "), 0u);
}

TEST_F(NotificationTest, TheStorageLockIsHeldWhileTheListChangesAndNeverWhileAnEventIsSent) {
    ConnectedRig rig;
    const auto isFree = [&] {
        if (!g_mutex_trylock(&StorageMutexOf(rig.task))) return false;
        g_mutex_unlock(&StorageMutexOf(rig.task));
        return true;
    };
    int free = 0, held = 0;
    platform.OnEvent([&](const Event&) { free += isFree(); });
    platform.OnCall("media_storage_foreach_storage_from_db", [&] { held += !isFree(); });
    platform.FireDbUpdate(ScanEnd(kStick));
    platform.FireUsb(Stick(kStick), "blocked");
    platform.FireUsb(Stick(kStick), "mounted");
    EXPECT_EQ(free, 3);
    EXPECT_EQ(held, 1);
}

TEST_F(NotificationTest, EachEngineHasItsOwnNotificationsAndList) {
    ConnectedRig first, second;
    EXPECT_TRUE(WaitUntil([&] { return platform.UsbReceivers() == 2; }));
    EXPECT_TRUE(WaitUntil([&] { return platform.DbReceivers() == 2; }));
    platform.PostUsb(Stick(kStick), "blocked");
    platform.WaitForEvent("USB_DISCONNECTED", &first.engine);
    platform.WaitForEvent("USB_DISCONNECTED", &second.engine);
    ASSERT_TRUE(first.task.Disconnect());
    platform.PostUsb(Stick(kStick), "mounted");
    platform.WaitForEvent("USB_CONNECTED", &second.engine);
    platform.PostDbUpdate(ScanEnd(kStick));
    platform.WaitForEvent("SYNC_COMPLETED", &second.engine);
    EXPECT_EQ(platform.CountEvents("USB_CONNECTED") + platform.CountEvents("SYNC_COMPLETED"), 2)
        << "the disconnected one hears nothing";
    EXPECT_TRUE(Labels(first.task).empty());
    EXPECT_EQ(Labels(second.task), (Strings{"1:5", kStick}));
}

// ---- the database ----

struct ChangeCase {
    const char* what;
    DbUpdate update;
    const char* event;  // null: none
    bool mediaReport;
};

DbUpdate Varied(DbUpdate update, const std::function<void(DbUpdate&)>& vary) {
    vary(update);
    return update;
}

const std::string kPhoto = OnStick("a.jpg");

const ChangeCase kChangeCases[] = {
    {"scan done", ScanEnd(kStick), "SYNC_COMPLETED", false},
    {"scan failed", ScanEnd(kStick, MEDIA_CONTENT_ERROR_CANCELLED), "SYNC_FAILED", false},
    {"scan failed otherwise", ScanEnd(kStick, static_cast<media_content_error_e>(1)), "SYNC_FAILED",
     false},
    {"another folder", ScanEnd(OnStick("DCIM")), nullptr, false},
    {"no storage", ScanEnd("/opt/storage/usb/sdz1"), nullptr, false},
    {"a camera's path", ScanEnd("n/a"), nullptr, false},
    {"a mime type", Varied(ScanEnd(kStick), [](auto& u) { u.mime = ""; }), nullptr, false},
    {"a file", Varied(ScanEnd(kStick), [](auto& u) { u.item = 0; }), nullptr, false},
    {"an insertion", Varied(ScanEnd(kStick), [](auto& u) { u.update = 0; }), nullptr, false},
    {"both at once", Varied(ScanEnd(kStick), [](auto& u) { u.media = 0; }), "SYNC_COMPLETED", true},
    {"a photo", Change(0, kPhoto), nullptr, true},
    {"a video", Change(1, kPhoto), nullptr, true},
    {"a sound", Change(2, kPhoto), nullptr, false},
    {"music", Change(3, kPhoto), nullptr, true},
    {"another file", Change(4, kPhoto), nullptr, false},
    {"outside", Change(0, "/opt/media/a.jpg"), nullptr, false},
    {"beside the root", Change(0, "/opt/storage/usbdrive/a.jpg"), nullptr, false},
    {"the root anywhere", Change(0, "/mnt/opt/storage/usb/a.jpg"), nullptr, true},
    {"the root itself", Varied(ScanEnd(kRoot), [](auto& u) { u.media = 0; }), "SYNC_COMPLETED",
     false},
    {"no path", Varied(ScanEnd(""), [](auto& u) { u.path.reset(); }), nullptr, false},
};

TEST_F(NotificationTest, WhatEachChangeOfTheDatabaseTells) {
    AddStick(kRoot, "S0");
    ConnectedRig rig;
    for (const ChangeCase& c : kChangeCases) {
        SCOPED_TRACE(c.what);
        platform.ForgetLog();
        const size_t before = platform.Events().size();
        platform.FireDbUpdate(c.update);
        const std::vector<Event> events = EventsAfter(before);
        ASSERT_EQ(events.size(), c.event ? 1u : 0u);
        if (c.event) {
            EXPECT_EQ(events[0].name, c.event);
            EXPECT_EQ(events[0].payload, *c.update.path == kRoot ? "S0" : "S1");
        }
        const std::string path = c.update.path.value_or("");
        const std::string type = "TYPE: " + std::to_string(c.update.update);
        EXPECT_EQ(platform.HasLog(kTrace, type + ", MEDIA PATH: " + path), c.mediaReport);
        EXPECT_EQ(platform.HasLog(kTrace, type), c.mediaReport) << "told to the engine";
        EXPECT_EQ(platform.HasLog(kProgress, "ERROR: path is NULL!\n"), !c.update.path);
        EXPECT_TRUE(platform.HasLog(kTrace, "<db update infomation>\n"));
        EXPECT_TRUE(platform.HasLog(kTrace, "pid : 4711\n"));
    }
}

TEST_F(NotificationTest, TheEndOfAScanIsTimedFromTheUsbEvent) {
    ConnectedRig rig;
    platform.FireUsb(Stick(kStick), "mounted");
    platform.ForgetLog();
    DbUpdate update = ScanEnd(kStick, MEDIA_CONTENT_ERROR_DB_FAILED);
    update.uuid = "the storage";
    platform.FireDbUpdate(update);
    EXPECT_TRUE(platform.HasLog(kTrace, "uuid : the storage\n"));
    EXPECT_TRUE(platform.HasLog(kTrace, "RESULT: -1002"));
    EXPECT_TRUE(platform.HasLog("Storage Sync Finished(S1), result [0]"));
    int end = 0, elapsed = -1;
    for (const std::string& message : platform.Messages()) {
        sscanf(message.c_str(), "endTime = %d", &end);
        sscanf(message.c_str(), "ElapsedTime = %d ms", &elapsed);
    }
    EXPECT_NE(end, 0);
    EXPECT_GE(elapsed, 0);
    EXPECT_LT(elapsed, 60000) << "counted from the wrong event, or from none";
}

TEST_F(NotificationTest, TheDatabasesReceiverStaysAndIsAddedAgain) {
    const auto registrations = [this] {
        std::vector<int> counts;
        for (const LogLine& line : platform.Log()) {
            int count = 0;
            if (line.function == "SetSyncCompletionCallback" &&
                sscanf(line.message.c_str(), "CALLED COUNT: %d, CB ADDR: ", &count) == 1)
                counts.push_back(count);
        }
        return counts;
    };
    {
        ConnectedRig rig;
        ASSERT_TRUE(rig.task.Disconnect());
        EXPECT_EQ(platform.DbReceivers(), 1);
        platform.FireDbUpdate(ScanEnd(kStick));  // nothing is connected
        ASSERT_TRUE(rig.task.Connect());
        EXPECT_EQ(platform.CallCount("media_content_set_db_updated_cb"), 2);
        ASSERT_EQ(registrations().size(), 2u);
        EXPECT_EQ(registrations()[1], registrations()[0] + 1);
        EXPECT_TRUE(platform.Events().empty());
    }
    platform.FireDbUpdate(ScanEnd(kStick));
    platform.FireDbUpdate(Change(0, kPhoto));
    EXPECT_TRUE(platform.Events().empty()) << "the engine is gone";
}

}  // namespace
}  // namespace test
