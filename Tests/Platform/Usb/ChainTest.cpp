// From the device's event to the client's: the real process with the udev back end, mocked USB
// devices, and a real file system mounted and unmounted below the USB root, all in a mount
// namespace of the test's own.
#include <signal.h>
#include <sys/mount.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <random>
#include <thread>

#include "MockDevices.h"
#include "Service/Crew.h"
#include "Service/MediaClient.h"
#include "Service/Program.h"
#include "Support/Basics.h"

namespace fs = std::filesystem;

namespace {

bool g_ownNamespace = false;

constexpr int kPhotos = 4;  // three, and one broken, which is listed all the same
const fs::path kRoot = "/opt/storage/usb";
const std::string kCamera = std::string(kBus) + "camera";

std::string Line(const std::string& command) {
    const test::Outcome outcome = test::RunProgram({"/bin/sh", "-c", command});
    EXPECT_EQ(0, outcome.status) << outcome.errors;
    return outcome.output.substr(0, outcome.output.find('\n'));
}

// One client's life: connects, asks, fetches and leaves in random order until told to stop. What a
// stick that has just gone makes of its answers is no matter; that each comes is.
void LiveRandomly(const std::string& socket, unsigned seed, const std::atomic<bool>& stop) {
    std::mt19937 random(seed);
    test::MediaClient client(socket);
    std::string storageId;
    while (!stop) {
        switch (random() % 6) {
            case 0: {
                const Json::Value storages = client.Storages();
                if (!storages.empty()) storageId = storages[0]["id"].asString();
                break;
            }
            case 1:
                EXPECT_EQ(client.Run("Disconnect"), "1");
                EXPECT_TRUE(client.Connect());
                break;
            default:
                if (storageId.empty()) break;
                EXPECT_GE(client.Query(storageId, "photo", "", "false"), 0);
                client.Fetch(0, 10);
        }
        client.Raw().TakeAll();
    }
}

class ChainTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!g_ownNamespace) GTEST_SKIP() << "no mount namespace of its own for this test";
        if (!MakeLoop()) GTEST_SKIP() << "no ext4 image can be made a loop device here";
        ASSERT_EQ(0, mount("none", "/opt", "tmpfs", 0, nullptr)) << strerror(errno);
        fs::create_directories(kRoot);
        const int minor = std::stoi(loop.substr(std::string("/dev/loop").size()));
        mock.Add(UsbText("stick", 5, "08", "50") +
                 BlockText(disk, "disk", 7, minor,
                           "A: removable=1\\n\nE: ID_FS_TYPE=ext4\nE: ID_FS_UUID=" + uuid +
                               "\nE: ID_FS_LABEL_ENC=HOLI\\x20DAY\n"));
        StartService();
    }

    void TearDown() override {
        if (service) {
            service->Signal(SIGTERM);
            EXPECT_EQ(0, service->Wait());
            if (HasFailure()) std::cerr << test::ReadFile(folder + "/log");
        }
        umount2("/opt", MNT_DETACH);
        if (!loop.empty()) Line("losetup -d " + loop);
    }

    bool MakeLoop() {
        const test::Outcome sample =
            test::RunProgram({MAKE_SAMPLE_MEDIA, "--photos", folder + "/photos", "3"});
        EXPECT_EQ(0, sample.status) << sample.errors;
        const std::string image = folder + "/image";
        if (Shell("truncate -s 16M " + image + " && mke2fs -q -t ext4 -d " + folder + "/photos " +
                  image + " && losetup -f " + image) != 0)
            return false;
        loop = Line("losetup -n -O NAME -j " + image);
        uuid = Line("blkid -o value -s UUID " + image);
        return !loop.empty();
    }

    void StartService() {
        const test::Variables variables{{"LD_PRELOAD", "libumockdev-preload.so.0"},
                                        {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"},
                                        {"TSAN_OPTIONS", "ignore_noninstrumented_modules=1"}};
        service = std::make_unique<test::Program>(
            std::vector<std::string>{CONTENTS_MGR, "--address", "unix:path=" + Socket(), "--usb",
                                     "udev", "--database", folder + "/media.db"},
            folder + "/log", variables);
        ASSERT_TRUE(test::Until([this] { return fs::exists(Socket()); }));
    }

    void MountAt(const std::string& name) {
        fs::create_directory(kRoot / name);
        EXPECT_EQ(0,
                  Shell("mount -o ro,nosuid,nodev,noexec " + loop + " " + (kRoot / name).string()));
    }

    // The storage of the next such event.
    static Json::Value Storage(test::MediaClient& client, const std::string& event) {
        const auto came = client.Raw().Wait(event);
        EXPECT_TRUE(came) << event;
        return came ? test::Parse(came->payload)["storage"] : Json::Value();
    }

    std::string Socket() const { return folder + "/socket"; }

    const test::TempFolder temporary;
    const std::string folder = temporary.Path();
    std::string loop, uuid;
    const std::string disk = DiskPath("stick", "loop");
    MockDevices mock;
    std::unique_ptr<test::Program> service;
};

TEST_F(ChainTest, AStickAndACameraComeAndGo) {
    test::MediaClient client(Socket());
    EXPECT_TRUE(test::Parse(client.Run("GetStorages"))["storages"].empty());

    MountAt("one");
    const Json::Value come = Storage(client, "USB_CONNECTED");
    EXPECT_EQ("$USB_DIR/one", come["mountPath"].asString());
    EXPECT_EQ("HOLI DAY", come["partitionLabel"].asString());
    EXPECT_EQ("EXT4 msc ACME", come["fileSystem"].asString() + " " + come["type"].asString() + " " +
                                   come["vendor"].asString());
    const std::string id = come["id"].asString();
    EXPECT_NE("", id);
    EXPECT_TRUE(client.Raw().Wait("SYNC_COMPLETED"));
    EXPECT_EQ(kPhotos, client.Query(id, "photo"));

    mock.Add(UsbText("camera", 7, "06", "01"));
    const Json::Value camera = Storage(client, "USB_CONNECTED");
    EXPECT_EQ("ptp n/a 1 7", camera["type"].asString() + " " + camera["mountPath"].asString() +
                                 " " + camera["deviceBus"].asString() + " " +
                                 camera["deviceAddress"].asString());
    mock.Remove(kCamera + "/camera:1.0");
    mock.Remove(kCamera);
    mock.Send(disk, "change");
    EXPECT_EQ("7", Storage(client, "USB_DISCONNECTED")["deviceAddress"].asString());

    Unmount(kRoot / "one");
    EXPECT_EQ(id, Storage(client, "USB_DISCONNECTED")["id"].asString());
    MountAt("two");  // the same stick at another place
    EXPECT_EQ(id, Storage(client, "USB_CONNECTED")["id"].asString());
    EXPECT_EQ(kPhotos, client.Query(id, "photo"));
    mock.Send(disk, "remove");  // pulled out and put back while it is mounted
    EXPECT_EQ("$USB_DIR/two", Storage(client, "USB_DISCONNECTED")["mountPath"].asString());
    EXPECT_EQ(id, Storage(client, "USB_CONNECTED")["id"].asString());
}

// CM_CYCLES in the environment makes it longer than a test run has time for.
TEST_F(ChainTest, AStickIsMountedAndUnmountedAtAnyMomentUnderThreeClients) {
    test::MediaClient watcher(Socket());
    std::mt19937 random(11);
    {
        test::Crew crew;
        for (unsigned seed = 1; seed <= 3; ++seed)
            crew.Add([this, seed](auto& stop) { LiveRandomly(Socket(), seed, stop); });
        fs::create_directory(kRoot / "one");
        for (int cycle = 0; cycle < test::FromEnvironment("CM_CYCLES", 30); ++cycle) {
            ASSERT_EQ(0, mount(loop.c_str(), (kRoot / "one").c_str(), "ext4", MS_RDONLY, nullptr));
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
            Unmount(kRoot / "one");
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
        }
    }
    MountAt("two");
    const Json::Value storage = watcher.Storage("two");
    EXPECT_EQ(kPhotos, watcher.Query(storage["id"].asString(), "photo"));
    const Json::Value storages = test::Parse(watcher.Run("GetStorages"))["storages"];
    EXPECT_EQ(1u, storages.size()) << storages;
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    g_ownNamespace = EnterOwnMountNamespace();
    return RUN_ALL_TESTS();
}
