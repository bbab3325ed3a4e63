// The storage record and its JSON.
#include <sched.h>
#include <sys/mount.h>
#include <sys/statfs.h>

#include "CJsonHelper.h"
#include "PluginTest.h"

namespace test {
namespace {

class StorageTest : public PluginTest {
protected:
    static Json::Value ToJson(StoragePtr storage) {
        Json::Value json;
        dorn::CJsonHelper::GenerateStorageInfoJson(json, storage);
        return json;
    }
    static StoragePtr At(const std::string& mountPath) {
        StoragePtr storage(new CMediaStorage);
        storage->SetMountPath(mountPath.c_str());
        storage->SetDeviceClass(USB_CLASS_MASS_STORAGE);
        return storage;
    }
};

TEST_F(StorageTest, PlatformValuesAreMapped) {
    const auto fileSystem = [](int type) {
        CMediaStorage storage;
        storage.SetFileSystem(static_cast<fstype_e>(type));
        return dorn::CJsonHelper::GetFileSystemAsString(storage.GetFileSystem());
    };
    const std::pair<int, const char*> fileSystems[] = {
        {0, "VFAT"}, {1, "UNKNOWN"}, {2, "EXT4"}, {3, "NTFS"}, {4, "UNKNOWN"}};
    for (const auto& c : fileSystems) EXPECT_EQ(fileSystem(c.first), c.second) << c.first;

    const auto deviceClass = [](int usbClass) {
        CMediaStorage storage;
        storage.SetDeviceClass(static_cast<usb_class_e>(usbClass));
        return dorn::CJsonHelper::GetDiskTypeAsString(storage.GetDeviceClass());
    };
    const std::pair<int, const char*> classes[] = {
        {8, "msc"}, {6, "ptp"}, {0, "unknown"}, {3, "unknown"}};
    for (const auto& c : classes) EXPECT_EQ(deviceClass(c.first), c.second) << c.first;

    const std::pair<int, int> disks[] = {{1, 1}, {0, 2}, {2, 2}, {3, 2}};
    for (const auto& c : disks) {
        CMediaStorage storage;
        storage.SetDiskType(static_cast<disktype_e>(c.first));
        EXPECT_EQ(storage.GetDiskType(), c.second);
    }
    const CMediaStorage fresh;
    EXPECT_EQ(fresh.GetDeviceID() + fresh.GetDeviceMountPath() + fresh.GetDeviceName() +
                  fresh.GetManufacturer() + fresh.GetModelName() + fresh.GetSerial() +
                  fresh.GetPartitionLabel(),
              "");
    EXPECT_EQ(fresh.GetVendorID() + fresh.GetAddress() + fresh.GetBus(), 0);
}

TEST_F(StorageTest, AStickAsClientsSeeIt) {
    StoragePtr stick = At("/opt/storage/usb/no such stick");
    stick->SetDeviceID("S1");
    stick->SetDeviceName("/dev/sda1");
    stick->SetModelName("Model");
    stick->SetManufacturer("Maker");
    stick->SetSerial("123");
    stick->SetPartitionLabel("PHOTOS");
    stick->SetFileSystem(FSTYPE_EXT4);
    stick->SetAddress(4);
    stick->SetBus(1);
    EXPECT_EQ(ToJson(stick), Parse(R"({"id":"S1","name":"Model","totalSize":"0","availableSize":"0",
                "mountPath":"$USB_DIR/no such stick","fileSystem":"EXT4","serialNumber":"123",
                "vendor":"Maker","partitionLabel":"PHOTOS","type":"msc"})"));
}

TEST_F(StorageTest, ACameraAsClientsSeeIt) {
    // A relative path of that name exists here, so that asking the file system would be seen.
    StoragePtr camera(new CMediaStorage);
    camera->SetMountPath("n/a");
    camera->SetDeviceClass(USB_CLASS_STILL_IMAGE);
    camera->SetAddress(14);
    camera->SetBus(2);
    TempFolder folder;
    folder.MakeFolder("n");
    folder.MakeFolder("n/a");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    const Json::Value json = ToJson(camera);
    std::filesystem::current_path(before);
    EXPECT_EQ(json["totalSize"].asString(), "0");
    EXPECT_EQ(json["availableSize"].asString(), "0");
    EXPECT_EQ(json["type"].asString(), "ptp");
    EXPECT_EQ(json["mountPath"].asString(), "n/a");
    EXPECT_EQ(json["deviceAddress"].asString(), "14");
    EXPECT_EQ(json["deviceBus"].asString(), "2");
    EXPECT_EQ(json.size(), 12u);
}

TEST_F(StorageTest, KeysOfOthersStayInTheObject) {
    Json::Value json;
    json["mine"] = 1;
    StoragePtr stick = At("/elsewhere");
    dorn::CJsonHelper::GenerateStorageInfoJson(json, stick);
    EXPECT_EQ(json["mine"].asInt(), 1);
    EXPECT_EQ(json["mountPath"].asString(), "/elsewhere");
}

TEST_F(StorageTest, SizesAreWhatTheFileSystemSays) {
    TempFolder folder;
    const StoragePtr storage = At(folder.Path());
    struct statfs answer = {};
    // Others write on this file system too: ask until both answers stand still.
    EXPECT_TRUE(WaitUntil([&] {
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

TEST_F(StorageTest, SizesBeyond32Bits) {
    TempFolder folder;
    long long kilobytes = -1;
    // A mount namespace of its own, which goes with the thread.
    std::thread([&] {
        if (unshare(CLONE_NEWNS | CLONE_FS) != 0) return;
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
        if (mount("none", folder.Path().c_str(), "tmpfs", 0, "size=3t") != 0) return;
        kilobytes = At(folder.Path())->GetDeviceTotalSize();
    }).join();
    if (kilobytes < 0) GTEST_SKIP() << "needs the right to mount a file system";
    EXPECT_EQ(kilobytes, 3LL << 30);
}

TEST_F(StorageTest, TheDatabasesHandleIsAPrivateClone) {
    AddStick();
    media_filter_h filter = nullptr;
    ASSERT_EQ(media_content_connect(), 0);
    ASSERT_EQ(media_filter_create(&filter), 0);
    const auto take = [](media_storage_h handle, void* userData) {
        static_cast<CMediaStorage*>(userData)->SetMeidaStorage(handle);
        return true;
    };
    {
        CMediaStorage storage;
        EXPECT_EQ(media_storage_foreach_storage_from_db(filter, take, &storage), 0);
        EXPECT_EQ(platform.LiveHandles()["storage"], 1);
        EXPECT_EQ(platform.CallCount("media_storage_destroy"), 0);
    }
    { CMediaStorage without; }
    EXPECT_EQ(platform.CallCount("media_storage_destroy"), 1);
    media_filter_destroy(filter);
}

}  // namespace
}  // namespace test
