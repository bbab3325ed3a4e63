// Wrappers over media records, their JSON, and the listing of folders.
#include <fcntl.h>
#include <sys/stat.h>

#include "CJsonHelper.h"
#include "CMediaContent.h"
#include "CMediaContentFolder.h"
#include "PluginTest.h"

namespace test {
namespace {

using dorn::CJsonHelper;

class MediaModelTest : public PluginTest {
protected:
    Json::Value ToJson(const Item& item) { return Render(item, CJsonHelper::GenerateMediaJson); }
    Json::Value ToFolderJson(const Item& item) {
        ++keptRecords;
        return Render(item, CJsonHelper::GenerateFolderMediaJson);
    }

private:
    Json::Value Render(const Item& item, void (*generate)(media_info_s*, Json::Value&)) {
        Json::Value items;  // null becomes an array
        media_info_s* record = platform.MakeRecord(item);
        generate(record, items);
        media_info_destroy(record);
        EXPECT_EQ(items.size(), 1u);
        return items[0];
    }
};

TEST_F(MediaModelTest, WrappersGiveBackWhatTheyTookExceptThePlainOne) {
    media_info_s* record = platform.MakeRecord(Item{"/s.amr", MEDIA_CONTENT_TYPE_SOUND});
    {
        dorn::CMediaContent plain;
        plain.SetMediaInfo(record);
        dorn::CMediaContentFolder never;
    }
    EXPECT_EQ(platform.CallCount("media_info_destroy"), 0);
    media_info_destroy(record);
    EXPECT_EQ(platform.CallCount("media_folder_destroy"), 0);
    keptRecords = 1;
}

TEST_F(MediaModelTest, AnItemOfAnotherOrUnreadableKindIsNull) {
    for (const auto type : {MEDIA_CONTENT_TYPE_SOUND, MEDIA_CONTENT_TYPE_OTHERS})
        EXPECT_TRUE(ToJson(Item{"/x", type}).isNull());
    platform.Fail("media_info_get_media_type", 1);
    EXPECT_TRUE(ToJson(Item{"/x"}).isNull());
    keptRecords = 3;
}

// What a client sees of items whose values can be read is in Tests/EndToEnd.
TEST_F(MediaModelTest, EveryKeyIsThereWhenEveryGetterFails) {
    for (const char* call :
         {"media_info_get_media_id", "media_info_get_file_path", "media_info_get_size",
          "media_info_get_image", "media_info_get_latitude", "media_info_get_title"})
        platform.Fail(call, 0);
    const Json::Value item = ToJson(Item{"/opt/storage/usb/a.jpg"});
    EXPECT_EQ(item.size(), 14u);
    for (const char* key : {"id", "fullPathName", "title"}) EXPECT_EQ(item[key].asString(), "");
    for (const char* key : {"size", "width", "height", "latitude"})
        EXPECT_EQ(item[key].asString(), "0");
    for (const std::string& key : item.getMemberNames()) EXPECT_TRUE(item[key].isString());
}

TEST_F(MediaModelTest, AnItemOfAFolder) {
    const char* const kinds[] = {"photo", "video", "unknown", "music", "unknown"};
    for (int type = 0; type < 5; ++type) {
        const Item item{"/opt/storage/usb/x.bin",
                        static_cast<media_content_type_e>(type),
                        7,
                        "i",
                        5000000000,
                        1500000000};
        Json::Value expected = Parse(R"({"id":"i","name":"x.bin","title":"","mime":"",
            "size":"5000000000","addedTime":"1500000000","modifiedTime":"1500000000",
            "description":""})");
        expected["type"] = kinds[type];
        EXPECT_EQ(ToFolderJson(item), expected);
    }
}

// ---- conversions ----

TEST_F(MediaModelTest, NumbersAndOrientationsAsText) {
    EXPECT_EQ(CJsonHelper::ConvertNumberToString(18446744073709551615ULL), "18446744073709551615");
    EXPECT_EQ(CJsonHelper::ConvertNumberToString(-9000000000LL), "-9000000000");
    EXPECT_EQ(CJsonHelper::ConvertNumberToString(1234567.0), "1.23457e+06");
    for (int beyond : {-1, 9})
        EXPECT_EQ(CJsonHelper::GetOrientationTypeAsString(
                      static_cast<media_content_orientation_e>(beyond)),
                  "notAvailable");
}

TEST_F(MediaModelTest, PathsChangeTheirFirstRootOnly) {
    const std::pair<const char*, const char*> bothWays[] = {
        {"/opt/storage/usb/sda1/a.jpg", "$USB_DIR/sda1/a.jpg"},
        {"/opt/storage/usbdrive/x", "$USB_DIRdrive/x"},
        {"/mnt/opt/storage/usb", "/mnt$USB_DIR"},
        {"/opt/media/a.jpg", "/opt/media/a.jpg"},
    };
    const auto convert = CJsonHelper::ConvertUsbBasePath;
    for (const auto& [device, client] : bothWays) {
        EXPECT_EQ(convert(device, dorn::CM_CONVERT_TO_CLIENT_PATH), client);
        EXPECT_EQ(convert(client, dorn::CM_CONVERT_TO_DEVICE_PATH), device);
    }
    EXPECT_EQ(convert("/opt/storage/usb/opt/storage/usb", dorn::CM_CONVERT_TO_CLIENT_PATH),
              "$USB_DIR/opt/storage/usb");
    EXPECT_EQ(convert("$USB_DIR$USB_DIR", dorn::CM_CONVERT_TO_DEVICE_PATH),
              "/opt/storage/usb$USB_DIR");
}

// ---- folders on disk ----

TEST_F(MediaModelTest, ASubfolderIsNameAndTime) {
    TempFolder folder;
    const std::string name(255, 'n');
    MakeFolder(folder / name);
    const timespec times[2] = {{100, 0}, {1500000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / name).c_str(), times, 0), 0);
    Json::Value expected = Parse(R"([{"addedTime":1500000000,"modifiedTime":1500000000}])");
    expected[0]["name"] = name;
    Json::Value items(Json::arrayValue);
    int added = 0;
    CJsonHelper::GenerateBelowFolderJson(items, folder.Path(), {0, 0, 10, 0}, added);
    EXPECT_EQ(items, expected);
}

}  // namespace
}  // namespace test
