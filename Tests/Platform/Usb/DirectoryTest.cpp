// The back end over a plain folder, through the seam: lists, key files and hot-plug.
#include <sys/stat.h>

#include <atomic>
#include <future>

#include "Recorder.h"
#include "UsbDevice/KeyFile.h"

namespace fs = std::filesystem;

namespace {

class DirectoryTest : public UsbTest {
protected:
    std::string Come(const std::string& name) const { return "db+ " + PathOf(name); }
    std::string Go(const std::string& name) const { return "db- " + PathOf(name); }
};

const char* const kCameraKeys = "[device]\nproduct=Eye\nvendor=Optics\nbus=3\naddress=7\n";

TEST_F(DirectoryTest, ListsSticksAndCamerasAndRecordsTheStoragesFirst) {
    MakeFolders({"B stick", "A\xff", ".hidden"});
    fs::create_directory_symlink(root / "B stick", root / "link");
    WriteFile("camera.usb", kCameraKeys);
    WriteFile("away.usb", "[device]\nclass=8\n");
    WriteFile("A\xff.usb", "[device]\nfile-system=ext4\n");  // else it is that of the test's folder
    WriteFile("B stick.usb",
              "[device]\nvendor=ACME\nvendor-id=0x0781\nproduct=Disk\nserial=S1\nlabel=A\\xffB\n"
              "file-system=ntfs\npartition=2\n");
    Start();

    EXPECT_EQ((Strings{Come("A\xff"), Come("B stick")}), Lines());
    const std::string plain = "A\xff /A\xff/ \"A\xff\" 0 0:0 8.80 #1 disk 1 fs 2 at ";
    const std::string stick = "B stick ACME/Disk/S1 \"A\xff\x42\" 781 0:0 8.80 #2 disk 1 fs 3 at ";
    const std::string camera = "camera Optics/Eye/ \"\" 0 3:7 6.1 #0 disk 0 fs 1 at n/a";
    EXPECT_EQ((Strings{plain + PathOf("A\xff"), stick + PathOf("B stick")}),
              ListDevices(USB_CLASS_MASS_STORAGE));
    EXPECT_EQ(Strings{camera}, ListDevices(USB_CLASS_STILL_IMAGE));
    EXPECT_EQ(3u, ListDevices().size());
}

TEST_F(DirectoryTest, StoragesAreKnownByWhatTheirKeyFileTellsOrByTheirPath) {
    MakeFolders({"plain", "serial", "uuid"});
    WriteFile("serial.usb", "[device]\nserial=S\npartition=3\n");
    WriteFile("uuid.usb", "[device]\nserial=S\nuuid=1234-ABCD\nlabel=L\n");
    Start();
    EXPECT_EQ("", StorageAt("serial").uuid);
    EXPECT_EQ("S", StorageAt("serial").serial);
    EXPECT_EQ(3, StorageAt("serial").partition);
    EXPECT_EQ("1234-ABCD", StorageAt("uuid").uuid);
    EXPECT_EQ("L", StorageAt("uuid").label);
    const std::string byPath = StorageAt("plain").uuid;
    EXPECT_NE("", byPath);

    EXPECT_EQ(0, usb_device_fini());
    Journal::Instance().Clear();
    EXPECT_EQ(0, usb_device_init());
    EXPECT_EQ(byPath, StorageAt("plain").uuid);
}

TEST_F(DirectoryTest, CountsItsUsersAndAnswersMisuse) {
    usb_device_list_s* list = nullptr;
    EXPECT_EQ(USB_DEVICE_ERROR_NOT_INITIALIZED, usb_device_fini());
    EXPECT_EQ(USB_DEVICE_ERROR_NOT_INITIALIZED, usb_device_get_device_list(USB_CLASS_ALL, &list));
    Start();
    EXPECT_EQ(0, usb_device_init());
    EXPECT_EQ(0, usb_device_fini());
    EXPECT_EQ(0u, ListDevices().size());
    EXPECT_EQ(0, usb_device_fini());
    EXPECT_EQ(USB_DEVICE_ERROR_NOT_INITIALIZED, usb_device_fini());

    char* text = nullptr;
    EXPECT_EQ(USB_DEVICE_ERROR_INVALID_PARAMETER, usb_device_get_product(nullptr, &text));
    EXPECT_EQ(USB_DEVICE_ERROR_INVALID_PARAMETER, usb_device_free_device_list(nullptr));
    EXPECT_EQ(USB_DEVICE_ERROR_INVALID_PARAMETER, usb_set_connected_cb(nullptr, nullptr));
    EXPECT_EQ(USB_DEVICE_ERROR_NO_DEVICE, usb_unset_connected_cb(RecordChange, &text));
}

TEST_F(DirectoryTest, AListThatCannotBeReadIsAnError) {
    // A name too long for any file system: the one unreadable folder that root meets too.
    const std::string unreadable = PathOf(std::string(300, 'x'));
    platform::ConfigureUsbService({platform::UsbBackEnd::Directory, unreadable});
    EXPECT_EQ(USB_DEVICE_ERROR_IO, usb_device_init());
    EXPECT_EQ(USB_DEVICE_ERROR_NOT_INITIALIZED, usb_device_fini());
}

TEST_F(DirectoryTest, KeyFileValuesAreTakenStrictly) {
    using Record = platform::DeviceRecord;
    const auto bus = [](const Record& r) { return std::to_string(r.bus); };
    const auto id = [](const Record& r) { return std::to_string(r.vendorId); };
    const auto label = [](const Record& r) { return r.label; };
    const auto type = [](const Record& r) { return std::to_string(r.fileSystem); };
    const auto disk = [](const Record& r) { return std::to_string(r.diskType); };
    const struct {
        const char* line;
        std::string expected;  // "" when the line is refused
        std::function<std::string(const Record&)> get;
    } cases[] = {
        {"bus=12", "12", bus},
        {"bus = 0x0C", "12", bus},
        {"bus=-1", "", bus},
        {"bus=+1", "", bus},
        {"bus=1 2", "", bus},
        {"bus=", "", bus},
        {"bus=0x", "", bus},
        {"bus=70000", "", bus},
        {"bus=99999999999999999999", "", bus},
        {"vendor-id=0xffff", "65535", id},
        {"vendor-id=0x10000", "", id},
        {"label=", "", label},
        {"label=two words", "two words", label},
        {"label=\\sa\\\\b\\x41\\n", " a\\bA\n", label},
        {"label=caf\xe9", "caf\xe9", label},
        {"label=\xc3\xa9;=#", "\xc3\xa9;=#", label},
        {"label=a\\q", "", label},
        {"label=a\\x4", "", label},
        {"label=a\\x00", "", label},
        {"file-system=exfat", "0", type},
        {"file-system=other", "1", type},
        {"file-system=EXT4", "", type},
        {"disk-type=optical", "3", disk},
        {"disk-type=7", "", disk},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.line);
        WriteFile("k.usb", std::string("[device]\n") + one.line + "\nserial=ok\n");
        Record record;
        Strings complaints;
        const std::string before = one.get(record);
        EXPECT_TRUE(platform::ReadKeyFile(PathOf("k.usb"), record, complaints));
        EXPECT_EQ(one.expected.empty() ? before : one.expected, one.get(record));
        const bool refused = one.expected.empty() && std::string(one.line) != "label=";
        EXPECT_EQ(refused ? 1u : 0u, complaints.size());
        EXPECT_EQ("ok", record.serial);
    }
}

TEST_F(DirectoryTest, FilesThatAreNoKeyFilesChangeNothing) {
    WriteFile("no group.usb", "serial=1\n");
    WriteFile("other group.usb", "[camera]\nserial=1\n");
    WriteFile("long.usb", "[device]\nserial=1\n#" + std::string(70000, 'x'));
    WriteFile("real.usb", "[device]\nserial=1\n");
    fs::create_symlink(root / "real.usb", root / "link.usb");
    ASSERT_EQ(0, mkfifo(PathOf("fifo.usb").c_str(), 0600));
    for (const char* name :
         {"no group.usb", "other group.usb", "long.usb", "link.usb", "fifo.usb", "missing.usb"}) {
        SCOPED_TRACE(name);
        platform::DeviceRecord record;
        Strings complaints;
        EXPECT_FALSE(platform::ReadKeyFile(PathOf(name), record, complaints));
        EXPECT_EQ(1u, complaints.size());
        EXPECT_EQ("", record.serial);
    }
}

// Everything that a stick's and a camera's coming and going may bring, and nothing else.
TEST_F(DirectoryTest, TellsOfWhatComesAndGoes) {
    Start();
    MakeFolders({"stick"});
    ASSERT_TRUE(WaitFor("mounted stick"));
    WriteFile(".hidden.usb", kCameraKeys);
    WriteFile("camera.usb", kCameraKeys);
    ASSERT_TRUE(WaitFor("added Eye"));
    EXPECT_EQ(2u, ListDevices().size());
    fs::remove(root / "camera.usb");
    ASSERT_TRUE(WaitFor("removed Eye"));
    // A key file that comes later makes another device of it.
    WriteFile("stick.usb", "[device]\nclass=6\nproduct=Lens\n");
    ASSERT_TRUE(WaitFor("added Lens"));
    fs::remove(root / "stick.usb");
    ASSERT_TRUE(WaitFor("mounted stick", 2));
    fs::remove(root / "stick");
    ASSERT_TRUE(WaitFor("blocked stick", 2));
    EXPECT_EQ(0u, ListDevices().size());
    EXPECT_EQ((Strings{Come("stick"), "mounted stick", "added Eye", "removed Eye", Go("stick"),
                       "blocked stick", "added Lens", Come("stick"), "removed Lens",
                       "mounted stick", Go("stick"), "blocked stick"}),
              Lines());
}

// Another stick of the same name, put in between two looks, is not taken for the first.
TEST_F(DirectoryTest, AReplacedStickGoesAndComes) {
    MakeFolders({"stick"});
    fs::create_directory(folder / "other");
    Start();
    fs::rename(root / "stick", folder / "first");
    fs::rename(folder / "other", root / "stick");
    ASSERT_TRUE(WaitFor("mounted stick"));
    fs::remove(root / "stick");
    MakeFolders({"stick"});  // may well get the number of the removed one
    ASSERT_TRUE(WaitFor("mounted stick", 2));
    Strings database, receiver;  // these two are told on threads of their own
    for (const std::string& line : Lines())
        (line.rfind("db", 0) == 0 ? database : receiver).push_back(line);
    const std::string come = Come("stick"), go = Go("stick");
    EXPECT_EQ((Strings{come, go, come, go, come}), database);
    EXPECT_EQ((Strings{"blocked stick", "mounted stick", "blocked stick", "mounted stick"}),
              receiver);
}

TEST_F(DirectoryTest, TheRootMayBeMissingAndComeBack) {
    root = folder / "far/away/usb";
    Start();
    EXPECT_EQ(0u, ListDevices().size());
    MakeFolders({"one"});
    ASSERT_TRUE(WaitFor("mounted one"));
    fs::rename(root, folder / "moved");
    ASSERT_TRUE(WaitFor("blocked one"));
    MakeFolders({"two"});
    ASSERT_TRUE(WaitFor("mounted two"));
    fs::remove_all(folder / "far");
    ASSERT_TRUE(WaitFor("blocked two"));
    MakeFolders({"three"});
    ASSERT_TRUE(WaitFor("mounted three"));
}

TEST_F(DirectoryTest, NobodySeesAStorageBeforeTheDatabaseHasIt) {
    Start();
    Journal::Instance().holdStorageMounted = true;
    MakeFolders({"first"});
    WriteFile("camera.usb", kCameraKeys);
    ASSERT_TRUE(WaitFor("held " + PathOf("first")));
    for (int i = 0; i < 100; ++i) {  // the database is busy: calls are answered all the same
        EXPECT_EQ(0u, ListDevices().size());
        EXPECT_EQ(0, usb_device_init());
        EXPECT_EQ(0, usb_device_fini());
    }
    EXPECT_EQ(1u, Lines().size());
    Journal::Instance().holdStorageMounted = false;
    ASSERT_TRUE(WaitFor("added Eye"));
    ASSERT_TRUE(WaitFor("mounted first"));
    EXPECT_EQ(Come("first"), Lines()[1]);
    EXPECT_EQ(2u, ListDevices().size());
}

// ---- receivers -------------------------------------------------------------------------------

struct Blocker {
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<int> calls{0};
    std::atomic<bool> inside{false};
};

void BlockOnce(usb_device_s*, char*, void* userData) {
    auto* blocker = static_cast<Blocker*>(userData);
    blocker->inside = true;
    if (blocker->calls++ == 0) {
        blocker->entered.set_value();
        blocker->release.get_future().wait();
    }
    blocker->inside = false;
}

TEST_F(DirectoryTest, RemovingAReceiverWaitsForItsRunningCallAndEndsIt) {
    Start();
    Blocker blocker;
    EXPECT_EQ(0, usb_set_connected_cb(BlockOnce, &blocker));
    EXPECT_EQ(0, usb_set_connected_cb(BlockOnce, &blocker));  // still one receiver
    MakeFolders({"one"});
    blocker.entered.get_future().wait();

    // The call runs: others are not held up by it.
    EXPECT_EQ(1u, ListDevices().size());
    Blocker other;
    EXPECT_EQ(0, usb_set_connected_cb(BlockOnce, &other));
    EXPECT_EQ(0, usb_unset_connected_cb(BlockOnce, &other));
    MakeFolders({"two"});
    ASSERT_TRUE(WaitFor(Come("two")));

    std::promise<bool> insideAfterwards;
    std::thread remover([&] {
        EXPECT_EQ(0, usb_unset_connected_cb(BlockOnce, &blocker));
        insideAfterwards.set_value(blocker.inside);
    });
    blocker.release.set_value();
    EXPECT_FALSE(insideAfterwards.get_future().get());
    remover.join();
    ASSERT_TRUE(WaitFor("mounted two"));
    fs::remove(root / "two");
    ASSERT_TRUE(WaitFor("blocked two"));
    EXPECT_LE(blocker.calls, 2);  // the second came before the removal, or never
    EXPECT_EQ(0, other.calls);
    EXPECT_EQ(USB_DEVICE_ERROR_NO_DEVICE, usb_unset_connected_cb(BlockOnce, &blocker));
}

void RemoveItself(usb_device_s* device, char*, void* userData) {
    EXPECT_EQ(0, usb_unset_connected_cb(RemoveItself, userData));
    Journal::Instance().Add("last " + NameOf(device));
}

TEST_F(DirectoryTest, AReceiverMayRemoveItself) {
    Start();
    EXPECT_EQ(0, usb_set_connected_cb(RemoveItself, this));
    MakeFolders({"one"});
    ASSERT_TRUE(WaitFor("last one"));
    MakeFolders({"two"});
    ASSERT_TRUE(WaitFor("mounted two"));
    EXPECT_EQ((Strings{Come("one"), "mounted one", "last one", Come("two"), "mounted two"}),
              Lines());
}

}  // namespace
