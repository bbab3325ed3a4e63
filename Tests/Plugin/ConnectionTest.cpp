// Connecting, disconnecting, and the discovery of storages.
#include "PluginTest.h"

namespace test {
namespace {

constexpr int kRigThreads = 2;  // the worker of the task manager and that of its engine
constexpr const char* kOther = "/opt/storage/usb/sdb1";

class ConnectionTest : public PluginTest {};

TEST_F(ConnectionTest, ConnectingTwiceIsFineDisconnectingTwiceIsNot) {
    Rig rig;
    EXPECT_FALSE(rig.task.Disconnect());
    ASSERT_TRUE(rig.task.Connect());
    EXPECT_TRUE(HasThreads(kRigThreads + 2)) << "one for each watcher";
    EXPECT_TRUE(rig.task.Connect());
    EXPECT_EQ(platform.CallCount("media_content_connect"), 1);
    EXPECT_TRUE(HasThreads(kRigThreads + 2));
    EXPECT_TRUE(rig.task.Disconnect());
    EXPECT_EQ(platform.Connections(), 0);
    EXPECT_EQ(platform.UsbUsers(), 0);
    EXPECT_FALSE(rig.task.Disconnect());
}

TEST_F(ConnectionTest, SticksArePairedWithTheirStoragesInAtMostThreePasses) {
    const struct {
        const char* what;
        std::vector<Device> devices;
        std::vector<Storage> storages;
        Strings ids;
        int passes;
    } cases[] = {
        {"nothing attached", {}, {}, {}, 0},
        {"recorded already", {{kStick}}, {{"S1", kStick}}, {"S1"}, 1},
        {"recorded in the second pass", {{kStick}}, {{"S1", kStick, 3, 2}}, {"S1"}, 2},
        {"recorded in the third pass", {{kStick}}, {{"S1", kStick, 3, 3}}, {"S1"}, 3},
        {"recorded too late", {{kStick}}, {{"S1", kStick, 3, 4}}, {""}, 3},
        {"two sticks", {{kOther}, {kStick}}, {{"S1", kStick}, {"S2", kOther}}, {"S2", "S1"}, 1},
        {"one elsewhere", {{kStick}, {"/mnt/disk"}}, {{"S1", kStick}}, {"S1", ""}, 3},
        {"only one elsewhere", {{"/mnt/disk"}}, {{"S1", kStick}}, {""}, 0},
        {"a card reader without a card", {{"n/a"}}, {}, {""}, 0},
        {"only a camera", {Camera(1, 2)}, {{"S1", kStick}}, {""}, 0},
        {"the root itself", {{kRoot}}, {{"S0", kRoot}}, {"S0"}, 1},
        {"the root's text",
         {{"/mnt/opt/storage/usb2"}},
         {{"S3", "/mnt/opt/storage/usb2"}},
         {"S3"},
         1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        platform.Reset();
        for (const Device& device : c.devices) platform.Add(device);
        for (const Storage& storage : c.storages) platform.Add(storage);
        Rig rig;
        EXPECT_TRUE(rig.task.Connect()) << "late pairing is no failure";
        Strings ids;
        for (const StoragePtr& storage : StoragesOf(rig.task))
            ids.push_back(storage->GetDeviceID());
        EXPECT_EQ(ids, c.ids);
        EXPECT_EQ(platform.CallCount("media_storage_foreach_storage_from_db"), c.passes);
        EXPECT_EQ(platform.LiveHandles(), 0);
    }
}

TEST_F(ConnectionTest, WhatAFailedConnectLeavesOpen) {
    const struct {
        const char* function;
        int connections, usbUsers;
    } cases[] = {{"media_content_connect", 0, 0},
                 {"usb_device_init", 1, 0},
                 {"usb_device_get_device_list", 0, 0},
                 {"media_filter_create", 0, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        platform.Reset();
        AddStick();
        platform.Fail(c.function, 1);
        Rig rig;
        // A report that arrives while the database closes takes the lock.
        platform.OnCall("media_content_disconnect",
                        [&] { const GMutexLock lock(StorageMutexOf(rig.task)); });
        EXPECT_FALSE(rig.task.Connect());
        EXPECT_EQ(platform.Connections(), c.connections);
        EXPECT_EQ(platform.UsbUsers(), c.usbUsers);
    }
}

TEST_F(ConnectionTest, AFailedConnectKeepsTheUsbServiceWhenTheDatabaseWillNotClose) {
    Rig rig;
    platform.Fail("usb_device_get_device_list", 1, USB_DEVICE_ERROR_IO);
    platform.Fail("media_content_disconnect", 1);
    EXPECT_FALSE(rig.task.Connect());
    EXPECT_EQ(platform.Connections(), 1);
    EXPECT_EQ(platform.UsbUsers(), 1);
}

TEST_F(ConnectionTest, AFailedDisconnectStaysConnectedWithoutWatchersAndMayBeTriedAgain) {
    AddStick();
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.Query("S1", dorn::MEDIA_TYPE_PHOTO, "", ""));
    Await("QUERY_COMPLETED");
    platform.Fail("media_content_disconnect", 1);
    EXPECT_FALSE(rig.task.Disconnect());
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

TEST_F(ConnectionTest, AStorageIsFoundByItsMountPathButNeverANotMountedOne) {
    AddStick();
    platform.Add(Camera(1, 2));
    ConnectedRig rig;
    ASSERT_TRUE(rig.task.m_GetStorageByMountPath(kStick));
    EXPECT_EQ(rig.task.m_GetStorageByMountPath(kStick)->GetDeviceID(), "S1");
    EXPECT_FALSE(rig.task.m_GetStorageByMountPath("n/a"));
    EXPECT_FALSE(rig.task.m_GetStorageByMountPath(OnStick("")));
}

}  // namespace
}  // namespace test
