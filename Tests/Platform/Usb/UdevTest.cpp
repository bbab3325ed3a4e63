// The back end for real hardware, over mocked devices. Where the machine lets it, over real file
// systems too, in a mount namespace of the test's own.
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "Recorder.h"
#include "UsbDevice/MountTable.h"
#include "UsbDevice/UdevSource.h"

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

namespace {

bool g_ownNamespace = false;

const char* const kBus = "/devices/pci0000:00/usb1/";

// A USB device at a port with one interface of that class.
std::string UsbText(const std::string& port, int address, const std::string& interfaceClass,
                    const std::string& protocol) {
    const std::string number = std::to_string(address);
    const std::string path = kBus + port;
    return "P: " + path + "\nN: bus/usb/001/00" + number +
           "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=/dev/bus/usb/001/00" + number +
           "\nA: idVendor=0781\\n\nA: idProduct=5581\\n\nA: busnum=1\\n\nA: devnum=" + number +
           "\\n\nA: manufacturer=ACME  \\n\nA: product=Thing " + port + "\\n\nA: serial=S" +
           number + "\\n\n\nP: " + path + "/" + port +
           ":1.0\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\nA: bInterfaceClass=" +
           interfaceClass + "\\n\nA: bInterfaceProtocol=" + protocol + "\\n\n\n";
}

std::string DiskPath(const std::string& port, const std::string& disk) {
    return kBus + port + "/" + port + ":1.0/host0/target0:0:0/0:0:0:0/block/" + disk;
}

std::string BlockText(const std::string& path, const std::string& type, int minor,
                      const std::string& more) {
    const std::string name = fs::path(path).filename();
    return "P: " + path + "\nN: " + name + "\nE: SUBSYSTEM=block\nE: DEVTYPE=" + type +
           "\nE: DEVNAME=/dev/" + name + "\nE: MAJOR=8\nE: MINOR=" + std::to_string(minor) + "\n" +
           more + "\n";
}

class UdevTest : public UsbTest {
protected:
    void SetUp() override {
        testbed = umockdev_testbed_new();
        {  // what the mock opens once is not counted
            platform::UdevSource source("/", "/proc/self/mountinfo");
            ASSERT_TRUE(source.Open());
        }
        UsbTest::SetUp();
        ASSERT_TRUE(umockdev_in_mock_environment());
        mountTable = (folder / "mounts").string();
        SetMounts("");
        Add(UsbText("keyboard", 2, "03", "01"));
    }

    void TearDown() override {
        UsbTest::TearDown();
        g_object_unref(testbed);
    }

    void Add(const std::string& devices) {
        GError* error = nullptr;
        ASSERT_TRUE(umockdev_testbed_add_from_string(testbed, devices.c_str(), &error))
            << error->message;
    }

    void Send(const std::string& path, const char* action) {
        umockdev_testbed_uevent(testbed, ("/sys" + path).c_str(), action);
    }

    void Remove(const std::string& path) {
        umockdev_testbed_remove_device(testbed, ("/sys" + path).c_str());
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
        return UsbText(port, 5, "08", "50") + BlockText(disk, "disk", 0, "A: removable=1\\n\n") +
               BlockText(disk + "/" + name + "1", "partition", 1,
                         "A: partition=1\\n\nE: ID_FS_TYPE=vfat\nE: ID_FS_UUID=1234-ABCD\n"
                         "E: ID_FS_LABEL_ENC=MY\\x20CAF\\xe9\n") +
               BlockText(disk + "/" + name + "2", "partition", 2,
                         "A: partition=2\\n\nE: ID_FS_TYPE=ext4\nE: ID_FS_UUID=aa-bb\n"
                         "E: ID_PART_ENTRY_NAME=second\\x20one\n");
    }

    UMockdevTestbed* testbed = nullptr;
};

TEST_F(UdevTest, AStickIsOneDeviceForEachMountedPartition) {
    Add(StickText());
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
    Add(UsbText("reader", 6, "08", "50") +
        BlockText(DiskPath("reader", "sdb"), "disk", 16, "A: removable=1\\n\nA: size=0\\n\n"));
    Add(StickText());
    Add(BlockText("/devices/pci0000:00/ata1/block/sdc", "disk", 32, "A: removable=0\\n\n"));
    SetMounts(MountLine(50, 32, PathOf("disk")));
    Start(platform::UsbBackEnd::Udev);
    EXPECT_EQ(0u, ListDevices(USB_CLASS_ALL).size());
    EXPECT_EQ(Strings{}, Lines());
}

TEST_F(UdevTest, CamerasComeAndGo) {
    Add(UsbText("camera1", 3, "06", "01"));
    Start(platform::UsbBackEnd::Udev);
    const auto cameras = ListDevices(USB_CLASS_STILL_IMAGE);
    ASSERT_EQ(1u, cameras.size());
    EXPECT_EQ("/dev/bus/usb/001/003 Thing camera1 n/a",
              cameras[0].name + " " + cameras[0].product + " " + cameras[0].mountPath);
    EXPECT_EQ(1, cameras[0].protocol);

    Add(UsbText("camera2", 4, "06", "01"));
    Send(std::string(kBus) + "camera2", "add");
    ASSERT_TRUE(WaitFor("added Thing camera2"));
    EXPECT_EQ(2u, ListDevices(USB_CLASS_STILL_IMAGE).size());
    Send(std::string(kBus) + "camera1", "remove");
    Remove(std::string(kBus) + "camera1");
    Send(std::string(kBus) + "keyboard", "change");
    ASSERT_TRUE(WaitFor("removed Thing camera1"));
    const auto lines = Lines();
    EXPECT_EQ((Strings{"added Thing camera2", "removed Thing camera1"}),
              Strings(lines.end() - 2, lines.end()));
}

TEST_F(UdevTest, AStickIsMountedPulledAndPutBack) {
    const std::string partition = DiskPath("stick", "sda") + "/sda1";
    Add(StickText());
    Start(platform::UsbBackEnd::Udev);
    SetMounts(MountLine(40, 1, PathOf("one")));
    Send(partition, "change");
    ASSERT_TRUE(WaitFor("mounted one"));

    // Put back before anyone looked, and mounted under the same number.
    Send(partition, "remove");
    Send(partition, "add");
    ASSERT_TRUE(Journal::Instance().WaitUntil([](const Strings& lines) {
        return std::count(lines.begin(), lines.end(), "mounted one") == 2;
    }));
    Send(partition, "remove");
    Remove(partition);  // its mount stays in the table until somebody cleans up
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
            Add(StickText(port, name));
            const std::string usb = kBus + port, disk = DiskPath(port, name);
            for (const std::string& path : {disk + "/" + name + "1", disk + "/" + name + "2", disk,
                                            usb + "/" + port + ":1.0", usb})
                Remove(path);
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
    Add(StickText());
    Start(platform::UsbBackEnd::Udev);
    const auto hasDevices = [](size_t count) {
        return Eventually([=] { return ListDevices(USB_CLASS_ALL).size() == count; });
    };
    for (int cycle = 0; cycle < 500; ++cycle) {
        const bool wait = cycle % 3 == 2;  // the mock has room for a few unread events only
        SetMounts(MountLine(40 + cycle, 1, PathOf("one")));
        Send(partition, "change");
        if (wait) {
            ASSERT_TRUE(hasDevices(1));
        }
        SetMounts("");
        Send(partition, "change");
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

int Shell(const std::string& command) {
    const int status = system((command + " 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

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
    for (const platform::Mount& mount : platform::ParseMountTable(text.str()))
        if (mount.mountPoint == PathOf("stick")) loop = mount.minor;
    Unmount(root / "stick");

    const std::string disk = DiskPath("stick", "loop" + std::to_string(loop));
    std::string block = BlockText(disk, "disk", static_cast<int>(loop), "A: removable=1\\n\n");
    block.replace(block.find("MAJOR=8"), 7, "MAJOR=7");
    Add(UsbText("stick", 5, "08", "50") + block);
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
    // Before any thread is there: the mount table of the process is that of its first thread.
    g_ownNamespace =
        unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return RUN_ALL_TESTS();
}
