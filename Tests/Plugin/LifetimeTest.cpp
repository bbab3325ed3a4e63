// What ends while something is still going on: engines, watchers, waits and late callbacks.
#include "PluginTest.h"
#include "SyncCompletionWatcher.h"
#include "USBConnectionWatcher.h"

namespace test {
namespace {

class LifetimeTest : public PluginTest {
protected:
    LifetimeTest() { AddStick(); }

    // A connected engine whose worker waits for a scan that never ends.
    std::unique_ptr<CPlivEngineContentsMgr> EngineInScanWait(const std::string& kind) {
        platform.SetScanStatus("S1", MEDIA_STORAGE_SCAN_RUNNING);
        platform.ScanFoldersLater();
        platform.ForgetLog();
        auto engine = std::make_unique<CPlivEngineContentsMgr>();
        EXPECT_EQ(Command(*engine, "Connect").value, "1");
        EXPECT_EQ(Command(*engine, "Query", "S1", kind, "$USB_DIR/sda1", "true").value, "1");
        EXPECT_TRUE(
            platform.WaitForLog("Sync is Not Complete. It will be checked 1 Second after \n"));
        return engine;
    }
};

// Fires every kind of notification from threads of its own until it is destroyed.
class Storm {
public:
    explicit Storm(FakePlatform& platform) {
        m_threads.emplace_back([&] {
            for (int i = 0; m_going; ++i)
                platform.FireUsb(Device{kStick}, i % 2 ? "mounted" : "blocked");
        });
        m_threads.emplace_back([&] {
            for (int i = 0; m_going; ++i) {
                platform.PostUsb(Camera(1, i % 3), i % 2 ? "added" : "removed");
                platform.FireDbUpdate({kStick});
                platform.PostDbUpdate({OnStick("a.jpg"), 0, MEDIA_CONTENT_ITEM_FILE});
                std::this_thread::yield();
            }
        });
    }
    ~Storm() {
        m_going = false;
        for (std::thread& thread : m_threads) thread.join();
    }

private:
    std::atomic<bool> m_going{true};
    std::vector<std::thread> m_threads;
};

TEST_F(LifetimeTest, WatchersMayEndTheMomentAfterTheyWereMade) {
    Rig rig;  // gives the callbacks somebody to go to
    ASSERT_TRUE(rig.task.Connect());
    ASSERT_TRUE(rig.task.Disconnect());
    for (int i = 0; i < 300; ++i) {
        { dorn::USBConnectionWatcher watcher; }
        { dorn::SyncCompletionWatcher watcher; }
        auto sync = std::make_unique<dorn::SyncCompletionWatcher>();
        auto usb = std::make_unique<dorn::USBConnectionWatcher>();
        if (i % 2) sync.reset();
        usb.reset();
    }
    EXPECT_EQ(platform.UsbReceivers(), 0);
}

TEST_F(LifetimeTest, AScanWaitEndsWithItsEngineAndItsCallbacksComeTooLate) {
    dorn::SetPauseUnit(std::chrono::seconds(1));
    for (const char* kind : {"photo", "folder"}) {
        auto engine = EngineInScanWait(kind);
        auto other = EngineInScanWait(kind);
        engine.reset();
        other.reset();
        EXPECT_EQ(platform.CountLog(kTimeOut), 0) << "it waited to the end";
    }
    EXPECT_EQ(platform.CompleteFolderScans(), 2);
}

TEST_F(LifetimeTest, AScanWaitEndsWhenNothingCanEndItAnyMore) {
    for (const char* kind : {"photo", "folder"}) {
        auto engine = EngineInScanWait(kind);
        EXPECT_EQ(Command(*engine, "Disconnect").value, "1");
        EXPECT_NE(Await("QUERY_COMPLETED")["result"].asInt(), 1);
    }
    EXPECT_EQ(platform.CompleteFolderScans(), 1);
}

TEST_F(LifetimeTest, AScanWaitEndsWithoutWatchersToo) {
    auto engine = EngineInScanWait("photo");
    platform.Fail("media_content_disconnect", 1);
    EXPECT_EQ(Command(*engine, "Disconnect").value, "0")
        << "connected still, but no main loop runs";
    EXPECT_EQ(Await("QUERY_COMPLETED")["result"].asInt(), -10);
}

TEST_F(LifetimeTest, EnginesComeAndGoWhileNotificationsPourIn) {
    Storm storm(platform);
    for (int i = 0; i < 15; ++i) {
        auto first = std::make_unique<CPlivEngineContentsMgr>();
        CPlivEngineContentsMgr second;
        Command(*first, "Connect");
        Command(second, "Connect");
        Command(*first, "Query", "S1", "photo", "", "true");
        EXPECT_EQ(Command(second, i % 2 ? "Disconnect" : "GetStorages").handled, true);
        first.reset();
        Command(second, "GetStorages");
    }
}

TEST_F(LifetimeTest, ADisconnectDuringAPairingPauseDoesNotWaitItOut) {
    dorn::SetPauseUnit(std::chrono::seconds(20));
    ConnectedRig rig;
    EXPECT_TRUE(Until([&] { return platform.UsbReceivers() == 1; }));
    platform.PostUsb(Device{"/opt/storage/usb/unknown"}, "mounted");
    ASSERT_TRUE(platform.WaitForLog("m_AddStorage storageListSize = 1 "));
    EXPECT_TRUE(rig.task.Disconnect());
    EXPECT_EQ(platform.CountLog(kTimeOut), 0) << "all passes ran";
}

TEST_F(LifetimeTest, ARecordIsReadWhileItsStickIsPairedAgain) {
    ConnectedRig rig;
    CPlivTaskContentsMgr::StorageList list;
    ASSERT_TRUE(rig.task.GetStorages(list));
    std::atomic<bool> going{true};
    std::thread reader([&] {
        while (going) EXPECT_EQ(list[0]->GetDeviceID(), "S1");
    });
    for (int i = 0; i < 50; ++i) platform.FireUsb(Device{kStick}, "mounted");
    going = false;
    reader.join();
}

}  // namespace
}  // namespace test
