// The back end for real hardware, over mocked devices. Where the machine lets it, over real file
// systems too, in a mount namespace of the test's own.
#include <sys/mount.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "MockDevices.h"
#include "Recorder.h"
#include "UsbDevice/MountTable.h"
#include "UsbDevice/UdevSource.h"

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

namespace {

bool g_ownNamespace = false;

class UdevTest : public UsbTest {
protected:
    void SetUp() override {
        mock = std::make_unique<MockDevices>();
        {  // what the mock opens once is not counted
            platform::UdevSource source("/", "/proc/self/mountinfo");
            ASSERT_TRUE(source.Open());
        }
        UsbTest::SetUp();
        ASSERT_TRUE(umockdev_in_mock_environment());
        mountTable = (folder / "mounts").string();
        SetMounts("");
        mock->Add(UsbText("keyboard", 2, "03", "01"));
    }

    void TearDown() override {
        UsbTest::TearDown();
        mock.reset();
    }

    // Lines of the mount table: number, mount point, source.
    void SetMounts(const std::string& text) { std::ofstream(mountTable) << text; }
    std::string MountLine(int id, int minor, const std::string& mountPoint) {
        return std::to_string(id) + " 1 8:" + std::to_string(minor) + " / " + mountPoint +
               " ro,nosuid shared:7 - vfat /dev/any ro\n";
    }

    // A stick with two partitions, sda1 (an EFI-like FAT) and sda2 (ext4).
    std::string StickText(const std::string& port = "stick", const std::string& name = "sda") {
        const std::string disk = DiskPath(port, name);
        return UsbText(port, 5, "08", "50") + BlockText(disk, "disk", 8, 0, "A: removable=1\\n\n") +
               BlockText(disk + "/" + name + "1", "partition", 8, 1,
                         "A: partition=1\\n\nE: ID_FS_TYPE=vfat\nE: ID_FS_UUID=1234-ABCD\n"
                         "E: ID_FS_LABEL_ENC=MY\\x20CAF\\xe9\n") +
               BlockText(disk + "/" + name + "2", "partition", 8, 2,
                         "A: partition=2\\n\nE: ID_FS_TYPE=ext4\nE: ID_FS_UUID=aa-bb\n"
                         "E: ID_PART_ENTRY_NAME=second\\x20one\n");
    }

    std::unique_ptr<MockDevices> mock;
};

TEST_F(UdevTest, AStickIsOneDeviceForEachMountedPartition) {
    mock->Add(StickText());
    SetMounts(MountLine(40, 1, "/mnt/elsewhere") + MountLine(41, 1, root.string() + "/a\\040b") +
              MountLine(42, 2, "/mnt/second") + "no mount\n");
    Start(platform::UsbBackEnd::Udev);

    // Only what is mounted below the root belongs to the media database.
    EXPECT_EQ(Strings{"db+ " + PathOf("a b")}, Lines());
    EXPECT_EQ("1234-ABCD", Journal::Instance().Storages().at(PathOf("a b")).uuid);
    const auto sticks = ListDevices(USB_CLASS_MASS_STORAGE);
    ASSERT_EQ(2u, sticks.size());
    const Seen& first = sticks[0];
    EXPECT_EQ("/dev/sda1 ACME Thing stick S5",
              first.name + " " + first.vendor + " " + first.product + " " + first.serial);
    EXPECT_EQ("MY CAF\xe9", first.label);
    EXPECT_EQ(PathOf("a b"), first.mountPath);
    EXPECT_EQ((std::vector<int>{0x0781, 1, 5, 8, 0x50, 1, DISK_TYPE_REMOVABLE, FSTYPE_VFAT}),
              (std::vector<int>{first.vendorId, first.bus, first.address, first.deviceClass,
                                first.protocol, first.number, first.diskType, first.fileSystem}));
    EXPECT_EQ("/mnt/second second one", sticks[1].mountPath + " " + sticks[1].label);
    EXPECT_EQ(FSTYPE_EXT4, sticks[1].fileSystem);
    EXPECT_EQ(2, sticks[1].number);
}

TEST_F(UdevTest, OtherDevicesAreNotListed) {
    // A card reader without a card, a stick that is not mounted, and a disk that is not USB.
    mock->Add(UsbText("reader", 6, "08", "50") + BlockText(DiskPath("reader", "sdb"), "disk", 8, 16,
                                                           "A: removable=1\\n\nA: size=0\\n\n"));
    mock->Add(StickText());
    mock->Add(
        BlockText("/devices/pci0000:00/ata1/block/sdc", "disk", 8, 32, "A: removable=0\\n\n"));
    SetMounts(MountLine(50, 32, PathOf("disk")));
    Start(platform::UsbBackEnd::Udev);
    EXPECT_EQ(0u, ListDevices(USB_CLASS_ALL).size());
    EXPECT_EQ(Strings{}, Lines());
}

TEST_F(UdevTest, CamerasComeAndGo) {
    mock->Add(UsbText("camera1", 3, "06", "01"));
    Start(platform::UsbBackEnd::Udev);
    const auto cameras = ListDevices(USB_CLASS_STILL_IMAGE);
    ASSERT_EQ(1u, cameras.size());
    EXPECT_EQ("/dev/bus/usb/001/003 Thing camera1 n/a",
              cameras[0].name + " " + cameras[0].product + " " + cameras[0].mountPath);
    EXPECT_EQ(1, cameras[0].protocol);

    mock->Add(UsbText("camera2", 4, "06", "01"));
    mock->Send(std::string(kBus) + "camera2", "add");
    ASSERT_TRUE(WaitFor("added Thing camera2"));
    EXPECT_EQ(2u, ListDevices(USB_CLASS_STILL_IMAGE).size());
    mock->Send(std::string(kBus) + "camera1", "remove");
    mock->Remove(std::string(kBus) + "camera1");
    mock->Send(std::string(kBus) + "keyboard", "change");
    ASSERT_TRUE(WaitFor("removed Thing camera1"));
    const auto lines = Lines();
    EXPECT_EQ((Strings{"added Thing camera2", "removed Thing camera1"}),
              Strings(lines.end() - 2, lines.end()));
}

TEST_F(UdevTest, AStickIsMountedPulledAndPutBack) {
    const std::string partition = DiskPath("stick", "sda") + "/sda1";
    mock->Add(StickText());
    Start(platform::UsbBackEnd::Udev);
    SetMounts(MountLine(40, 1, PathOf("one")));
    mock->Send(partition, "change");
    ASSERT_TRUE(WaitFor("mounted one"));

    // Put back before anyone looked, and mounted under the same number.
    mock->Send(partition, "remove");
    mock->Send(partition, "add");
    ASSERT_TRUE(Journal::Instance().WaitUntil([](const Strings& lines) {
        return std::count(lines.begin(), lines.end(), "mounted one") == 2;
    }));
    mock->Send(partition, "remove");
    mock->Remove(partition);  // its mount stays in the table until somebody cleans up
    ASSERT_TRUE(Journal::Instance().WaitUntil([](const Strings& lines) {
        return std::count(lines.begin(), lines.end(), "blocked one") == 2;
    }));
    EXPECT_EQ(0u, ListDevices(USB_CLASS_ALL).size());
    const std::string come = "db+ " + PathOf("one"), go = "db- " + PathOf("one");
    EXPECT_EQ(
        (Strings{come, "mounted one", go, come, "blocked one", "mounted one", go, "blocked one"}),
        Lines());
}

// A stick that goes while it is read is left out, or read whole.
TEST_F(UdevTest, AStickMayVanishWhileItIsRead) {
    SetMounts(MountLine(40, 1, PathOf("one")));
    platform::UdevSource source(root.string(), mountTable);
    ASSERT_TRUE(source.Open());
    std::atomic<bool> done{false};
    std::atomic<int> looks{0};
    std::thread plugger([&] {
        for (int cycle = 0; cycle < 50; ++cycle) {  // names of their own: the mock keeps links
            const std::string port = "p" + std::to_string(cycle), name = port + "x";
            mock->Add(StickText(port, name));
            const std::string usb = kBus + port, disk = DiskPath(port, name);
            for (const std::string& path : {disk + "/" + name + "1", disk + "/" + name + "2", disk,
                                            usb + "/" + port + ":1.0", usb})
                mock->Remove(path);
            // The mock has room for a few unread events only.
            const int before = looks;
            while (looks < before + 2) std::this_thread::yield();
        }
        done = true;
    });
    size_t seen = 0;
    while (!done) {
        source.Drain();
        std::vector<platform::DeviceRecord> devices;
        EXPECT_TRUE(source.List(devices));
        for (const auto& device : devices)
            EXPECT_EQ((std::vector<int>{1, 5, 1}),
                      (std::vector<int>{device.bus, device.address, device.number}));
        seen += devices.size();
        ++looks;
    }
    plugger.join();
    RecordProperty("seen", static_cast<int>(seen));
    std::vector<platform::DeviceRecord> devices;
    EXPECT_TRUE(source.List(devices));
    EXPECT_EQ(0u, devices.size());
}

TEST_F(UdevTest, FiveHundredMountsAndUnmounts) {
    const std::string partition = DiskPath("stick", "sda") + "/sda1";
    mock->Add(StickText());
    Start(platform::UsbBackEnd::Udev);
    const auto hasDevices = [](size_t count) {
        return Eventually([=] { return ListDevices(USB_CLASS_ALL).size() == count; });
    };
    for (int cycle = 0; cycle < 500; ++cycle) {
        const bool wait = cycle % 3 == 2;  // the mock has room for a few unread events only
        SetMounts(MountLine(40 + cycle, 1, PathOf("one")));
        mock->Send(partition, "change");
        if (wait) {
            ASSERT_TRUE(hasDevices(1));
        }
        SetMounts("");
        mock->Send(partition, "change");
        if (wait) {
            ASSERT_TRUE(hasDevices(0));
        }
    }
    size_t come = 0, gone = 0;
    for (const std::string& line : Lines()) {
        come += line.rfind("db+", 0) == 0;
        gone += line.rfind("db-", 0) == 0;
        EXPECT_LE(gone, come);
        EXPECT_LE(come, gone + 1);
    }
    EXPECT_GE(come, 166u);
}

// ---- real file systems -----------------------------------------------------------------------

class RealMountTest : public UdevTest {
protected:
    void SetUp() override {
        UdevTest::SetUp();
        mountTable = "/proc/self/mountinfo";
        image = (folder / "image").string();
        if (!g_ownNamespace) GTEST_SKIP() << "no mount namespace of its own for this test";
        if (Shell("truncate -s 8M " + image + " && mke2fs -q -t ext4 -L real " + image) != 0 ||
            !MountAt(root))
            GTEST_SKIP() << "no ext4 image can be mounted here";
        Unmount(root);
    }

    bool MountAt(const fs::path& path) {
        return Shell("mount -o loop " + image + " " + path.string()) == 0;
    }
    // A folder that is just being listed makes the kernel refuse for that moment.
    void Unmount(const fs::path& path) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        int result = umount(path.c_str());
        while (result != 0 && errno == EBUSY && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
            result = umount(path.c_str());
        }
        EXPECT_EQ(0, result) << strerror(errno);
    }

    void TearDown() override {
        umount2(PathOf("stick").c_str(), MNT_DETACH);
        UdevTest::TearDown();
    }

    std::string image;
};

TEST_F(RealMountTest, AFileSystemMountedOverAFolderIsAnotherStick) {
    fs::create_directory(root / "stick");
    Start();
    const std::string plain = Journal::Instance().Storages().at(PathOf("stick")).uuid;
    ASSERT_TRUE(MountAt(root / "stick"));
    ASSERT_TRUE(WaitFor("mounted stick"));
    const std::string real = Journal::Instance().Storages().at(PathOf("stick")).uuid;
    EXPECT_NE(plain, real);
    EXPECT_EQ(FSTYPE_EXT4, ListDevices(USB_CLASS_MASS_STORAGE).at(0).fileSystem);

    // Watched while it is mounted, and not kept from being unmounted by that.
    WriteFile("stick/new.jpg", "x");
    ASSERT_TRUE(Journal::Instance().WaitUntil([&](const Strings& lines) {
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line == "changed " + PathOf("stick") ||
                   line == "changed " + PathOf("stick/new.jpg");
        });
    }));
    Unmount(root / "stick");
    ASSERT_TRUE(Journal::Instance().WaitUntil([](const Strings& lines) {
        return std::count(lines.begin(), lines.end(), "mounted stick") == 2;
    }));
    EXPECT_EQ(plain, Journal::Instance().Storages().at(PathOf("stick")).uuid);
}

TEST_F(RealMountTest, TheKernelTellsOfMountsOfAStick) {
    fs::create_directory(root / "stick");
    Start(platform::UsbBackEnd::Udev);
    ASSERT_TRUE(MountAt(root / "stick"));
    std::ifstream file(mountTable);
    std::stringstream text;
    text << file.rdbuf();
    unsigned loop = 0;
    for (const platform::MountLine& mount : platform::ParseMountTable(text.str()))
        if (mount.mountPoint == PathOf("stick")) loop = mount.minor;
    Unmount(root / "stick");

    const std::string disk = DiskPath("stick", "loop" + std::to_string(loop));
    mock->Add(UsbText("stick", 5, "08", "50") +
              BlockText(disk, "disk", 7, static_cast<int>(loop), "A: removable=1\\n\n"));
    for (int i = 0; i < 3; ++i) {
        Journal::Instance().Clear();
        ASSERT_TRUE(MountAt(root / "stick"));
        ASSERT_TRUE(WaitFor("mounted stick"));
        EXPECT_EQ(FSTYPE_EXT4, ListDevices(USB_CLASS_MASS_STORAGE).at(0).fileSystem);
        Unmount(root / "stick");
        ASSERT_TRUE(WaitFor("blocked stick"));
    }
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    g_ownNamespace = EnterOwnMountNamespace();
    return RUN_ALL_TESTS();
}
