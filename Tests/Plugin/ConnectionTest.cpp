// Connecting, disconnecting, and the discovery of storages.
#include "PluginTest.h"

namespace test {
namespace {

constexpr const char* kTimeOut = " TimeOut Occured \n";
constexpr const char* kCompleted = " UsbScanning is Completed \n";
constexpr const char* kListFailed = " FAILED TO usb_device_get_device_list \n";

constexpr int kRigThreads = 2;  // the worker of the task manager and that of its engine

class ConnectionTest : public PluginTest {
protected:
    static Strings Ids(const CPlivTaskContentsMgr::StorageList& list) {
        Strings ids;
        for (const StoragePtr& storage : list) ids.push_back(storage->GetDeviceID());
        return ids;
    }
    int Passes() { return platform.CallCount("media_storage_foreach_storage_from_db"); }
};

TEST_F(ConnectionTest, ConnectingTwiceIsFineDisconnectingTwiceIsNot) {
    Rig rig;
    EXPECT_FALSE(rig.task.Disconnect());
    EXPECT_TRUE(platform.HasLog(kProgress, " Media is already Disonnected"));
    ASSERT_TRUE(rig.task.Connect());
    EXPECT_TRUE(HasThreads(kRigThreads + 2)) << "one for each watcher";
    EXPECT_TRUE(rig.task.Connect());
    EXPECT_TRUE(platform.HasLog(kProgress, " Media is already Connected"));
    EXPECT_EQ(platform.CallCount("media_content_connect"), 1);
    EXPECT_TRUE(HasThreads(kRigThreads + 2));
    EXPECT_TRUE(rig.task.Disconnect());
    EXPECT_EQ(platform.Connections(), 0);
    EXPECT_EQ(platform.UsbUsers(), 0);
    EXPECT_FALSE(rig.task.Disconnect());
}

TEST_F(ConnectionTest, TheOrderOfConnecting) {
    AddStick();
    ConnectedRig rig;
    const Strings calls = platform.Calls();
    ASSERT_GE(calls.size(), 3u);
    EXPECT_EQ(calls[0], "media_content_connect");
    EXPECT_EQ(calls[1], "usb_device_init");
    EXPECT_EQ(calls[2], "usb_device_get_device_list");
    // Both callbacks are known before the first watcher runs; USB's first.
    Strings registrations;
    for (const LogLine& line : platform.Log())
        if (line.message.find("CALLED COUNT") == 0) registrations.push_back(line.function);
    EXPECT_EQ(registrations, (Strings{"SetUsbConnectedCallback", "SetSyncCompletionCallback"}));
}

struct PairingCase {
    const char* what;
    std::vector<Device> devices;
    std::vector<Storage> storages;
    Strings ids;
    int passes;
    const char* end;  // null: no pairing
};

TEST_F(ConnectionTest, SticksArePairedWithTheirStoragesInAtMostThreePasses) {
    const std::string other = "/opt/storage/usb/sdb1";
    // clang-format off
    const PairingCase cases[] = {
        {"nothing attached", {}, {}, {}, 0, nullptr},
        {"recorded already", {Stick(kStick)}, {{"S1", kStick}}, {"S1"}, 1, kCompleted},
        {"recorded in the second pass", {Stick(kStick)}, {{"S1", kStick, 3, 2}}, {"S1"}, 2,
         kCompleted},
        {"recorded in the third pass: paired, and said to be late", {Stick(kStick)}, {{"S1", kStick,
         3, 3}}, {"S1"}, 3, kTimeOut},
        {"recorded too late", {Stick(kStick)}, {{"S1", kStick, 3, 4}}, {""}, 3, kTimeOut},
        {"two sticks, in discovery order", {Stick(other), Stick(kStick)}, {{"S1", kStick}, {"S2",
         other}}, {"S2", "S1"}, 1, kCompleted},
        {"one stick mounted elsewhere", {Stick(kStick), Stick("/mnt/disk")}, {{"S1", kStick}},
         {"S1", ""}, 3, kTimeOut},
        {"only a stick mounted elsewhere", {Stick("/mnt/disk")}, {{"S1", kStick}}, {""}, 0,
         nullptr},
        {"a card reader without a card", {Stick("n/a")}, {}, {""}, 0, nullptr},
        {"only a camera", {Camera(1, 2)}, {{"S1", kStick}}, {""}, 0, nullptr},
        {"the root itself", {Stick(kRoot)}, {{"S0", kRoot}}, {"S0"}, 1, kCompleted},
        {"the root's text anywhere counts", {Stick("/mnt/opt/storage/usb2/x")}, {{"S3",
         "/mnt/opt/storage/usb2/x"}}, {"S3"}, 1, kCompleted},
    };
    // clang-format on
    for (const PairingCase& c : cases) {
        SCOPED_TRACE(c.what);
        platform.Reset();
        for (const Device& device : c.devices) platform.Add(device);
        for (const Storage& storage : c.storages) platform.Add(storage);
        Rig rig;
        EXPECT_TRUE(rig.task.Connect()) << "late pairing is no failure";
        EXPECT_EQ(Ids(StoragesOf(rig.task)), c.ids);
        EXPECT_EQ(Passes(), c.passes);
        EXPECT_EQ(platform.CountLog(kTimeOut), c.end == kTimeOut);
        EXPECT_EQ(platform.CountLog(kCompleted), c.end == kCompleted);
        EXPECT_TRUE(platform.LiveHandles().empty());
        EXPECT_EQ(platform.HasLog("USB Storage Not is Exist\n"), c.passes == 0);
    }
}

TEST_F(ConnectionTest, WhatDiscoverySays) {
    AddStick();
    platform.Add(Camera(1, 2));
    ConnectedRig rig;
    platform.ForgetLog();
    CPlivTaskContentsMgr::StorageList list;
    ASSERT_TRUE(rig.task.GetStorages(list));
    EXPECT_EQ(platform.Messages(kProgress),
              (Strings{"[start to excute m_GetStorages]...\n",
                       "[result of usb_device_get_device_list is [0]\n", "usbListSize === [1]",
                       "usb_list[0]:mountpath:[/opt/storage/usb/sda1]\n", "USB Storage is Exist\n",
                       "m_GetStorages storageListSize = 1 ", "usblist.size === [1]",
                       "usbPath : [/opt/storage/usb/sda1], storagePath: [/opt/storage/usb/sda1]\n",
                       "storageID: S1\n", "tempStorageID: S1\n", kCompleted,
                       "[usbListSize of usb_device_get_device_list camera is [0]\n",
                       "usbListSize === [1]", "usb_list[0]:mountpath:[n/a]\n",
                       " exit m_GetStorages...\n"}));
}

// ---- failing platform calls ----

struct ConnectFault {
    const char* function;
    int nth;
    bool connects;
    int connections, usbUsers;  // afterwards
    Strings messages;
    int listFailures = 0;
};

TEST_F(ConnectionTest, EachFailingCallOfConnect) {
    const int error = USB_DEVICE_ERROR_IO;
    // clang-format off
    const ConnectFault cases[] = {
        {"media_content_connect", 1, false, 0, 0, {"failed to Media_content_connect"}},
        {"usb_device_init", 1, false, 1, 0, {"start usb_device_init...\n",
         "failed to usb_device_init \n"}},
        {"usb_device_get_device_list", 1, false, 0, 0,
         {"[result of usb_device_get_device_list is [-2003]\n", " Error Type is -2003 \n",
         " failed to m_GetStorages() \n"}, 10},
        {"usb_device_get_device_list", 2, false, 0, 0,
         {"[usbListSize of usb_device_get_device_list camera is [-2003]\n",
         " Error Type is -2003 \n", " failed to m_GetStorages() \n"}, 10},
        {"media_filter_create", 1, false, 0, 0, {"FAILED TO media_filter_destroy",
         "[m_GetStorages] - failed to media_filter_create",
         " failed to m_GetStorages() \n"}},
        {"usb_device_list_get_count", 0, true, 1, 1, {}},
        {"usb_device_list_get_first", 1, true, 1, 1, {" FAILED TO usb_device_list_get_first \n"}},
        {"usb_device_list_get_next", 1, true, 1, 1, {" FAILED TO usb_device_list_get_next \n"}},
        {"usb_device_get_mountpath", 0, true, 1, 1, {"USB Storage Not is Exist\n"}},
        {"usb_device_get_class", 0, true, 1, 1, {}},
        {"usb_device_get_serial", 0, true, 1, 1, {}},
        {"usb_device_free_device_list", 0, true, 1, 1, {}},
        {"media_storage_foreach_storage_from_db", 0, true, 1, 1, {kTimeOut}},
        {"media_storage_clone", 0, true, 1, 1, {kTimeOut}},
        {"media_storage_get_path", 0, true, 1, 1, {kTimeOut}},
        {"media_storage_get_storage_id", 0, true, 1, 1, {"tempStorageID: \n"}},
        {"media_storage_destroy", 0, true, 1, 1, {}},
        {"media_filter_destroy", 0, true, 1, 1, {"FAILED TO media_filter_destroy"}},
    };
    // clang-format on
    for (const ConnectFault& c : cases) {
        SCOPED_TRACE(c.function + std::to_string(c.nth));
        platform.Reset();
        AddStick();
        AddStick("/opt/storage/usb/sdb1", "S2");
        platform.Add(Camera(1, 5));
        platform.Fail(c.function, c.nth, error);
        Rig rig;
        EXPECT_EQ(rig.task.Connect(), c.connects);
        EXPECT_TRUE(HasThreads(kRigThreads + (c.connects ? 2 : 0)));
        EXPECT_EQ(platform.Connections(), c.connections);
        EXPECT_EQ(platform.UsbUsers(), c.usbUsers);
        const Strings logged = platform.Messages(kProgress);
        auto from = logged.begin();
        for (const std::string& message : c.messages) {
            from = std::find(from, logged.end(), message);
            EXPECT_NE(from, logged.end()) << message << " in its order";
        }
        EXPECT_EQ(platform.CountLog(kListFailed), c.listFailures);
        EXPECT_TRUE(platform.LiveHandles().empty());
        CPlivTaskContentsMgr::StorageList list;
        platform.FailNoMore();
        EXPECT_EQ(rig.task.GetStorages(list), c.connects);
        EXPECT_EQ(list.size(), c.connects ? 3u : 0u);
        EXPECT_TRUE(rig.task.Connect()) << "the failure has left something locked or half open";
    }
}

TEST_F(ConnectionTest, AFailedConnectKeepsTheUsbServiceWhenTheDatabaseWillNotClose) {
    Rig rig;
    platform.Fail("usb_device_get_device_list", 1, USB_DEVICE_ERROR_IO);
    platform.Fail("media_content_disconnect", 1, MEDIA_CONTENT_ERROR_DB_BUSY);
    EXPECT_FALSE(rig.task.Connect());
    EXPECT_TRUE(platform.HasLog(kProgress, "failed to Media_content_disconnect"));
    EXPECT_EQ(platform.Connections(), 1);
    EXPECT_EQ(platform.UsbUsers(), 1);
}

TEST_F(ConnectionTest, AFailedDisconnectStaysConnectedWithoutWatchersAndMayBeTriedAgain) {
    AddStick();
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("S1", dorn::MEDIA_TYPE_PHOTO, "", ""));
    Await("QUERY_COMPLETED");
    platform.Fail("media_content_disconnect", 1, MEDIA_CONTENT_ERROR_DB_BUSY);
    EXPECT_FALSE(rig.task.Disconnect());
    EXPECT_TRUE(platform.HasLog(kProgress, "failed to Media_content_disconnect"));
    EXPECT_TRUE(HasThreads(kRigThreads));
    EXPECT_EQ(platform.UsbReceivers(), 0);
    int count = 0;
    EXPECT_TRUE(rig.task.GetCount(2, count)) << "the queries are still known";
    EXPECT_EQ(StoragesOf(rig.task).size(), 1u);
    EXPECT_TRUE(rig.task.Connect()) << "it still is";
    EXPECT_EQ(platform.CallCount("media_content_connect"), 1);
    EXPECT_TRUE(rig.task.Disconnect());
    EXPECT_TRUE(StoragesOf(rig.task).empty());
    EXPECT_EQ(platform.UsbUsers(), 0);
    EXPECT_FALSE(rig.task.GetCount(2, count));
}

TEST_F(ConnectionTest, StoragesAreRefusedWhenDisconnectedOrUnlistable) {
    Rig rig;
    CPlivTaskContentsMgr::StorageList list;
    EXPECT_FALSE(rig.task.GetStorages(list));
    EXPECT_TRUE(platform.HasLog(kProgress, " Media is NOT Connected"));
    ASSERT_TRUE(rig.task.Connect());
    platform.Fail("usb_device_get_device_list", 1, USB_DEVICE_ERROR_IO);
    EXPECT_FALSE(rig.task.GetStorages(list));
    EXPECT_TRUE(platform.HasLog(kProgress, " FAILED TO m_GetStorageList() \n"));
    EXPECT_EQ(platform.CountLog(kListFailed), 10);
    EXPECT_TRUE(rig.task.GetStorages(list));
    EXPECT_TRUE(list.empty());
}

// ---- the parts that only notifications and derived code call ----

TEST_F(ConnectionTest, AStorageIsFoundByItsMountPathButNeverANotMountedOne) {
    AddStick();
    platform.Add(Camera(1, 2));
    ConnectedRig rig;
    const StoragePtr found = rig.task.m_GetStorageByMountPath(kStick);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->GetDeviceID(), "S1");
    EXPECT_FALSE(rig.task.m_GetStorageByMountPath("n/a"));
    EXPECT_FALSE(rig.task.m_GetStorageByMountPath(std::string(kStick) + "/"));
    for (const char* message :
         {"MOUNT PATH = n/a", "storages size (2)", "deviceMountPath(n/a), mountPath(n/a)\n"})
        EXPECT_TRUE(platform.HasLog(kProgress, message)) << message;
}

TEST_F(ConnectionTest, OneDevicesStorageIsLookedUp) {
    AddStick();
    ConnectedRig rig;
    usb_device_list_s* devices = nullptr;
    usb_device_s* device = nullptr;
    ASSERT_EQ(usb_device_get_device_list(USB_CLASS_MASS_STORAGE, &devices), 0);
    ASSERT_EQ(usb_device_list_get_first(devices, &device), 0);
    StoragePtr storage;
    ASSERT_TRUE(rig.task.m_GetStorageInfo(device, storage));
    EXPECT_EQ(storage->GetDeviceID(), "S1");
    EXPECT_EQ(platform.LiveHandles()["media_storage_s"], 1) << "the record's own clone";
    EXPECT_TRUE(platform.HasLog(kProgress, "StoragePath : /opt/storage/usb/sda1 \n"));
    EXPECT_TRUE(platform.HasLog(kProgress, "storageID is : S1\n"));
    platform.Fail("media_storage_get_path", 0, MEDIA_CONTENT_ERROR_DB_FAILED);
    EXPECT_FALSE(rig.task.m_GetStorageInfo(device, storage)) << "none matched";
    platform.Fail("media_filter_create", 0, MEDIA_CONTENT_ERROR_DB_FAILED);
    platform.ForgetLog();
    EXPECT_FALSE(rig.task.m_GetStorageInfo(device, storage));
    EXPECT_EQ(platform.Messages(kProgress), Strings{"failed to media_filter_create"});
    EXPECT_FALSE(rig.task.m_AddStorage(nullptr, StoragesOf(rig.task)));
    EXPECT_TRUE(platform.HasLog(kProgress, " m_AddStorage usb_device is null\n"));
    rig.task.m_DestroyUSBList(devices);
    rig.task.m_DestroyUSBList(nullptr);
}

}  // namespace
}  // namespace test
