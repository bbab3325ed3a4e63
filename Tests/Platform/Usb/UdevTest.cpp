// The back end for real hardware, over mocked devices. Where the machine lets it, over real file
// systems too, in a mount namespace of the test's own.
#include <algorithm>
#include <fstream>

#include "MockDevices.h"
#include "Recorder.h"
#include "UsbDevice/UdevSource.h"

namespace {

bool g_ownNamespace = false;

Strings Without(const std::string& text, Strings lines) {
    lines.erase(std::remove(lines.begin(), lines.end(), text), lines.end());
    return lines;
}

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
    EXPECT_EQ("1234-ABCD", StorageAt("a b").uuid);
    EXPECT_EQ(
        (Strings{"/dev/sda1 ACME/Thing stick/S5 \"MY CAF\xe9\" 781 1:5 8.80 #1 disk 1 fs 0 at " +
                     PathOf("a b"),
                 "/dev/sda2 ACME/Thing stick/S5 \"second one\" 781 1:5 8.80 #2 disk 1 fs 2 at "
                 "/mnt/second"}),
        ListDevices(USB_CLASS_MASS_STORAGE));
}

TEST_F(UdevTest, OtherDevicesAreNotListed) {
    // A card reader without a card, a stick that is not mounted, and a disk that is not USB.
    mock->Add(UsbText("reader", 6, "08", "50") + BlockText(DiskPath("reader", "sdb"), "disk", 8, 16,
                                                           "A: removable=1\\n\nA: size=0\\n\n"));
    mock->Add(StickText());
    mock->Add(
        BlockText("/devices/pci0000:00/ata1/block/sdc", "disk", 8, 32, "A: removable=0\\n\n"));
    // A stick that is just going away: its bus number has gone already.
    std::string going = UsbText("going", 7, "08", "50") +
                        BlockText(DiskPath("going", "sdd"), "disk", 8, 48, "A: removable=1\\n\n");
    const std::string busNumber = "A: busnum=1\\n\n";
    going.erase(going.find(busNumber), busNumber.size());
    mock->Add(going);
    SetMounts(MountLine(50, 32, PathOf("disk")) + MountLine(51, 48, PathOf("going")));
    Start(platform::UsbBackEnd::Udev);
    EXPECT_EQ(0u, ListDevices().size());
    EXPECT_EQ(Strings{}, Lines());
}

TEST_F(UdevTest, CamerasComeAndGo) {
    mock->Add(UsbText("camera1", 3, "06", "01"));
    Start(platform::UsbBackEnd::Udev);
    EXPECT_EQ((Strings{"/dev/bus/usb/001/003 ACME/Thing camera1/S3 \"\" 781 1:3 6.1 #0 disk 0 fs 1"
                       " at n/a"}),
              ListDevices(USB_CLASS_STILL_IMAGE));

    const std::string bus = kBus;
    mock->Add(UsbText("camera2", 4, "06", "01"));
    mock->Send(bus + "camera2", "add");
    ASSERT_TRUE(WaitFor("added Thing camera2"));
    EXPECT_EQ(2u, ListDevices(USB_CLASS_STILL_IMAGE).size());
    mock->Send(bus + "camera1", "remove");
    mock->Remove(bus + "camera1");
    mock->Send(bus + "keyboard", "change");
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
    ASSERT_TRUE(WaitFor("mounted one", 2));
    mock->Send(partition, "remove");
    mock->Remove(partition);
    // Its mount stays until somebody cleans up: so long it is told to nobody, which holds up
    // nothing else.
    mock->Add(UsbText("camera", 9, "06", "01"));
    mock->Send(std::string(kBus) + "camera", "add");
    ASSERT_TRUE(WaitFor("added Thing camera"));
    const std::string come = "db+ " + PathOf("one"), go = "db- " + PathOf("one");
    Strings lines{come, "mounted one", go, come, "blocked one", "mounted one", go};
    EXPECT_EQ(lines, Without("added Thing camera", Lines()));
    EXPECT_EQ(0u, ListDevices(USB_CLASS_MASS_STORAGE).size());
    SetMounts("");
    mock->Send(std::string(kBus) + "keyboard", "change");
    ASSERT_TRUE(WaitFor("blocked one", 2));
}

// ---- real file systems -----------------------------------------------------------------------

TEST_F(UsbTest, AFileSystemMountedOverAFolderIsAnotherStick) {
    if (!g_ownNamespace) GTEST_SKIP() << "no mount namespace of its own for this test";
    const std::string image = (folder / "image").string();
    const auto mountStick = [&] {
        return Shell("mount -o loop " + image + " " + PathOf("stick")) == 0;
    };
    MakeFolders({"stick"});
    if (Shell("truncate -s 8M " + image + " && mke2fs -q -t ext4 -L real " + image) != 0 ||
        !mountStick())
        GTEST_SKIP() << "no ext4 image can be mounted here";
    Unmount(PathOf("stick"));

    Start();
    const std::string plain = StorageAt("stick").uuid;
    ASSERT_TRUE(mountStick());
    ASSERT_TRUE(WaitFor("mounted stick"));
    EXPECT_NE(plain, StorageAt("stick").uuid);
    const Strings devices = ListDevices();
    ASSERT_EQ(1u, devices.size());
    EXPECT_NE(std::string::npos, devices[0].find(" fs 2 ")) << devices[0];
    // Watched while it is mounted, and not kept from being unmounted by that.
    WriteFile("stick/new.jpg", "x");
    EXPECT_TRUE(SawChangeIn("stick", "new.jpg"));
    Unmount(PathOf("stick"));
    ASSERT_TRUE(WaitFor("mounted stick", 2));
    EXPECT_EQ(plain, StorageAt("stick").uuid);
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    g_ownNamespace = EnterOwnMountNamespace();
    return RUN_ALL_TESTS();
}
