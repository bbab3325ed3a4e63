// The storage record and its JSON.
#include <sys/statfs.h>

#include "CJsonHelper.h"
#include "PluginTest.h"

namespace test {
namespace {

class StorageTest : public PluginTest {
protected:
    static StoragePtr At(const std::string& mountPath) {
        StoragePtr storage(new CMediaStorage);
        storage->SetMountPath(mountPath.c_str());
        return storage;
    }
};

TEST_F(StorageTest, PlatformValuesAreMapped) {
    CMediaStorage storage;
    const std::pair<int, const char*> fileSystems[] = {
        {0, "VFAT"}, {1, "UNKNOWN"}, {2, "EXT4"}, {3, "NTFS"}, {4, "UNKNOWN"}};
    for (const auto& [type, word] : fileSystems) {
        storage.SetFileSystem(static_cast<fstype_e>(type));
        EXPECT_EQ(dorn::CJsonHelper::GetFileSystemAsString(storage.GetFileSystem()), word) << type;
    }
    const std::pair<int, const char*> classes[] = {
        {8, "msc"}, {6, "ptp"}, {0, "unknown"}, {3, "unknown"}};
    for (const auto& [usbClass, word] : classes) {
        storage.SetDeviceClass(static_cast<usb_class_e>(usbClass));
        EXPECT_EQ(dorn::CJsonHelper::GetDiskTypeAsString(storage.GetDeviceClass()), word)
            << usbClass;
    }
}

TEST_F(StorageTest, StoragesAsClientsSeeThem) {
    Device stick{"/opt/storage/usb/no such stick"};
    stick.fstype = FSTYPE_EXT4;
    stick.manufacturer = "\xff";  // not UTF-8
    platform.Add(stick);
    platform.Add(Storage{"S1", stick.mountPath});
    platform.Add(Camera(2, 14));
    platform.Add(Device{"n/a", 3});  // a keyboard
    // A relative path of a camera's name exists here, so that asking the file system would be seen.
    TempFolder folder;
    std::filesystem::create_directories(folder / "n/a");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    CPlivEngineContentsMgr engine;
    Command(engine, "Connect");
    const std::string text = Command(engine, "GetStorages").value;
    std::filesystem::current_path(before);
    for (const char c : text) EXPECT_GE(c, 0);
    Json::Value storages = Parse(text)["storages"];
    Json::Value vendor;
    EXPECT_TRUE(storages[0].removeMember("vendor", &vendor));
    EXPECT_EQ(storages, Parse(R"([{"id":"S1","name":"Model","totalSize":"0","availableSize":"0",
            "mountPath":"$USB_DIR/no such stick","fileSystem":"EXT4","serialNumber":"S-1",
            "partitionLabel":"LABEL","type":"msc"},
        {"id":"","name":"Camera","totalSize":"0","availableSize":"0","mountPath":"n/a",
            "fileSystem":"VFAT","serialNumber":"S-1","vendor":"Maker","deviceAddress":"14",
            "deviceBus":"2","partitionLabel":"LABEL","type":"ptp"}])"));
}

TEST_F(StorageTest, SizesAreWhatTheFileSystemSays) {
    TempFolder folder;
    const StoragePtr storage = At(folder.Path());
    struct statfs answer = {};
    // Others write on this file system too: ask until both answers stand still.
    EXPECT_TRUE(Until([&] {
        if (statfs(folder.Path().c_str(), &answer) != 0) return false;
        const long long block = static_cast<long long>(answer.f_bsize);
        return storage->GetDeviceTotalSize() ==
                   block * static_cast<long long>(answer.f_blocks) / 1024 &&
               storage->GetDeviceAvailableSize() ==
                   block * static_cast<long long>(answer.f_bfree) / 1024;
    }));
    EXPECT_EQ(At("/no/such/path")->GetDeviceTotalSize(), 0);
    EXPECT_EQ(At("/no/such/path")->GetDeviceAvailableSize(), 0);
}

}  // namespace
}  // namespace test
