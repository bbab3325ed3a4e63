// Devices that come and go, and changes of the database.
#include "CJsonHelper.h"
#include "PluginTest.h"

namespace test {
namespace {

constexpr const char* kNewStick = "/opt/storage/usb/sdb1";
constexpr const char* kUnknown = "/opt/storage/usb/unknown";

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

const Strings kBoth{kStick, "1:5"};
const Strings kEmptyRecord{"", "", ""};
const Device kDisk{"/mnt/disk"}, kOther{kStick, 3}, kOtherDisk{"/mnt/x", 3};

const struct PlugCase {
    const char* action;
    Device device;
    Strings list;
    const char* event;  // null: none
    Strings reported;   // id, mount path, bus of a camera; empty: an empty record
} kPlugCases[] = {
    {"mounted", {kNewStick}, {kStick, "1:5", kNewStick}, "USB_CONNECTED", {"S2", kNewStick, ""}},
    {"mounted", {kUnknown}, {kStick, "1:5", kUnknown}, "USB_CONNECTED", {"", kUnknown, ""}},
    {"mounted", kDisk, kBoth, "USB_CONNECTED", kEmptyRecord},
    // The id goes to the first record of that path, the last one is reported.
    {"mounted", {kStick}, {kStick, "1:5", kStick}, "USB_CONNECTED", {"", kStick, ""}},
    {"mounted", kOther, kBoth, "USB_CONNECTED", {"S1", kStick, ""}},
    {"mounted", kOtherDisk, kBoth, "USB_CONNECTED", kEmptyRecord},
    {"mounted", Camera(1, 7), {kStick, "1:5", "1:7"}, "USB_CONNECTED", {"", "n/a", "1"}},
    {"blocked", {kStick}, {"1:5"}, "USB_DISCONNECTED", {"S1", kStick, ""}},
    {"blocked", {kNewStick}, kBoth, "USB_DISCONNECTED", {"", kNewStick, ""}},
    {"blocked", kOther, {"1:5"}, "USB_DISCONNECTED", {"", kStick, ""}},
    {"blocked", Camera(1, 5), {kStick}, "USB_DISCONNECTED", {"", "n/a", "1"}},
    {"blocked", Camera(2, 5), kBoth, "USB_DISCONNECTED", kEmptyRecord},
    {"added", Camera(2, 5), {kStick, "1:5", "2:5"}, "USB_CONNECTED", {"", "n/a", "2"}},
    {"added", {kNewStick}, kBoth, nullptr, {}},
    {"removed", Camera(1, 5), {kStick}, "USB_DISCONNECTED", {"", "n/a", "1"}},
    {"removed", Camera(1, 6), kBoth, "USB_DISCONNECTED", kEmptyRecord},
    {"removed", {kStick}, kBoth, nullptr, {}},
    {"Mounted", {kNewStick}, kBoth, nullptr, {}},
    {"", Camera(1, 5), kBoth, nullptr, {}},
};

TEST_F(NotificationTest, WhatEachActionDoesToTheListAndTellsTheClient) {
    platform.Add(Storage{"S2", kNewStick});
    for (const PlugCase& c : kPlugCases) {
        SCOPED_TRACE(std::string(c.action) + " " + c.device.mountPath + " " +
                     std::to_string(c.device.deviceClass));
        ConnectedRig rig;
        const size_t before = platform.Events().size();
        platform.FireUsb(c.device, c.action);
        EXPECT_EQ(Labels(rig.task), c.list);
        const std::vector<Event> events = EventsAfter(before);
        ASSERT_EQ(events.size(), c.event ? 1u : 0u);
        if (!c.event) continue;
        EXPECT_EQ(events[0].name, c.event);
        EXPECT_EQ(events[0].engine, &rig.engine);
        const Json::Value storage = Parse(events[0].payload)["storage"];
        const Strings reported{
            storage["id"].asString(),
            dorn::CJsonHelper::ConvertUsbBasePath(storage["mountPath"].asString(),
                                                  dorn::CM_CONVERT_TO_DEVICE_PATH),
            storage["deviceBus"].asString()};
        EXPECT_EQ(reported, c.reported);
    }
}

TEST_F(NotificationTest, AStickRecordedForTheThirdPassIsPaired) {
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Disconnect());  // which cuts pauses short, but only its own connection's
    ASSERT_TRUE(rig.task.Connect());
    const int listings = platform.CallCount("media_storage_foreach_storage_from_db");
    platform.Add(Storage{"S2", kNewStick, MEDIA_STORAGE_SCAN_COMPLETE, listings + 3});
    platform.FireUsb({kNewStick}, "mounted");
    EXPECT_EQ(Await("USB_CONNECTED")["storage"]["id"].asString(), "S2");
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
    EXPECT_EQ(platform.CountEvents("USB_DISCONNECTED"), 1);
}

TEST_F(NotificationTest, NothingIsDoneWithoutActionOrReceiver) {
    ConnectedRig rig;
    platform.FireUsb({kStick}, nullptr);
    char mounted[] = "mounted";
    CPlivTaskContentsMgr::s_USBConnctedCallback(nullptr, mounted, nullptr);
    EXPECT_EQ(Labels(rig.task), kBoth);
    EXPECT_TRUE(platform.Events().empty());
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
    platform.FireDbUpdate({kStick});
    platform.FireUsb({kStick}, "blocked");
    platform.FireUsb({kStick}, "mounted");
    EXPECT_EQ(free, 3);
    EXPECT_EQ(held, 1);
}

TEST_F(NotificationTest, EachEngineHasItsOwnNotificationsAndList) {
    ConnectedRig first, second;
    EXPECT_TRUE(Until([&] { return platform.UsbReceivers() == 2; }));
    EXPECT_TRUE(Until([&] { return platform.DbReceivers() == 2; }));
    platform.PostUsb({kStick}, "blocked");
    platform.WaitForEvent("USB_DISCONNECTED", &first.engine);
    platform.WaitForEvent("USB_DISCONNECTED", &second.engine);
    ASSERT_TRUE(first.task.Disconnect());
    platform.PostUsb({kStick}, "mounted");
    platform.WaitForEvent("USB_CONNECTED", &second.engine);
    platform.PostDbUpdate({kStick});
    platform.WaitForEvent("SYNC_COMPLETED", &second.engine);
    EXPECT_EQ(platform.CountEvents("USB_CONNECTED") + platform.CountEvents("SYNC_COMPLETED"), 2)
        << "the disconnected one hears nothing";
    EXPECT_TRUE(Labels(first.task).empty());
    EXPECT_EQ(Labels(second.task), (Strings{"1:5", kStick}));
}

// ---- the database ----

TEST_F(NotificationTest, WhatEachChangeOfTheDatabaseTells) {
    const struct {
        const char* what;
        DbUpdate update;
        const char* event;  // null: none
    } cases[] = {
        {"scan done", {kStick}, "SYNC_COMPLETED"},
        {"scan failed", {kStick, MEDIA_CONTENT_ERROR_CANCELLED}, "SYNC_FAILED"},
        {"scan failed otherwise", {kStick, 1}, "SYNC_FAILED"},
        {"another folder", {OnStick("DCIM")}, nullptr},
        {"no storage", {"/opt/storage/usb/sdz1"}, nullptr},
        {"a camera's path", {"n/a"}, nullptr},
        {"a mime type", {kStick, 0, 1, 2, 4, "image/jpeg"}, nullptr},
        {"a file", {kStick, 0, MEDIA_CONTENT_ITEM_FILE}, nullptr},
        {"an insertion", {kStick, 0, 1, MEDIA_CONTENT_INSERT}, nullptr},
        {"both at once", {kStick, 0, 1, 2, MEDIA_CONTENT_TYPE_IMAGE}, "SYNC_COMPLETED"},
        {"a photo", {OnStick("a.jpg"), 0, 0, 2, MEDIA_CONTENT_TYPE_IMAGE}, nullptr},
        {"the root itself", {kRoot}, "SYNC_COMPLETED"},
        {"no path", {""}, nullptr},
    };
    AddStick(kRoot, "S0");
    ConnectedRig rig;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const size_t before = platform.Events().size();
        platform.FireDbUpdate(c.update);
        const std::vector<Event> events = EventsAfter(before);
        ASSERT_EQ(events.size(), c.event ? 1u : 0u);
        if (!c.event) continue;
        EXPECT_EQ(events[0].name, c.event);
        EXPECT_EQ(events[0].payload, c.update.path == kRoot ? "S0" : "S1");
    }
}

TEST_F(NotificationTest, TheDatabasesReceiverStaysAndIsAddedAgain) {
    {
        ConnectedRig rig;
        ASSERT_TRUE(rig.task.Disconnect());
        EXPECT_EQ(platform.DbReceivers(), 1);
        platform.FireDbUpdate({kStick});  // nothing is connected
        ASSERT_TRUE(rig.task.Connect());
        EXPECT_EQ(platform.CallCount("media_content_set_db_updated_cb"), 2);
        EXPECT_TRUE(platform.Events().empty());
    }
    platform.ForgetLog();
    platform.FireDbUpdate({kStick});
    EXPECT_EQ(platform.CountLog("<db update infomation>\n"), 0) << "the engine is gone";
}

}  // namespace
}  // namespace test
