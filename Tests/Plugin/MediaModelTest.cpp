// Wrappers over media records, their JSON, and the listing of folders.
#include <fcntl.h>
#include <sys/stat.h>

#include "CJsonHelper.h"
#include "CMediaContentFolder.h"
#include "CMediaContentImage.h"
#include "CMediaContentMusic.h"
#include "CMediaContentVideo.h"
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

// ---- getters ----

std::string Text(char* text) {
    return text ? CJsonHelper::ConvertCharToString(text) : "null";
}
std::string Text(double number) {
    return CJsonHelper::ConvertNumberToString(number);
}

struct GetterCase {
    std::string object;
    const char* getter;
    std::string message;   // or what failed, said in the object's usual way
    const char* fallback;  // empty: anything
    std::function<std::string()> get;
};

// clang-format off
#define GETTER(object, getter, message, fallback) \
    {#object, #getter, message, fallback, [&] { return Text(object.getter()); }}
// clang-format on

// Of no record: whatever is asked of the platform fails.
TEST_F(MediaModelTest, AGetterThatFailsSaysSoAndYieldsItsFallback) {
    const dorn::CMediaContentMusic music;
    const dorn::CMediaContentImage image;
    const dorn::CMediaContentVideo video;
    const dorn::CMediaContentFolder folder;
    const dorn::CMediaContent& base = music;
    std::map<std::string, std::string> usual{{"base", "CMediaContent - failed to "},
                                             {"music", "CMediaContentMusic - failed to "},
                                             {"image", "CMediaContentImage - failed to "},
                                             {"video", "CMediaContentVideo - failed to "},
                                             {"folder", "GetFolderPath - failed to "}};
    // clang-format off
    const GetterCase cases[] = {
        GETTER(base, GetUUID, "media_info_get_media_id", "null"),
        GETTER(base, GetFilePath, "media_info_get_file_path", "null"),
        GETTER(base, GetName, "media_info_get_display_name", "null"),
        GETTER(base, GetMediaType, "media_info_get_media_type", ""),
        GETTER(base, GetMimeType, "media_info_get_mime_type", "null"),
        GETTER(base, GetSize, "media_info_get_size", "0"),
        GETTER(base, GetAddedTime, "media_info_get_added_time", ""),
        GETTER(base, GetModifiedTime,
               "[ContentsManager plugin] - failed to media_info_get_modified_time", ""),
        GETTER(base, GetThumbnailPath, "media_info_get_thumbnail_path", "null"),
        GETTER(base, GetDescription, "media_info_get_description", "null"),
        GETTER(base, GetTitle, "CMediaContent- failed to media_info_get_title", "null"),
        GETTER(base, GetRating, "CMediaContent- failed to media_info_get_rating", "0"),
        GETTER(music, GetMusicAlbum, "audio_meta_get_album", "null"),
        GETTER(music, GetMusicArtist, "audio_meta_get_artist", "null"),
        GETTER(music, GetMusicGenre, "audio_meta_get_genre", "null"),
        GETTER(music, GetMusicComposer, "audio_meta_get_composer", "null"),
        GETTER(music, GetMusicCopyright, "audio_meta_get_copyright", "null"),
        GETTER(music, GetMusicBitrate, "audio_meta_get_bit_rate", "0"),
        GETTER(music, GetMusicTrackNum, "audio_meta_get_track_num", "null"),
        GETTER(music, GetMusicDuration, "CMediaContentMusic - failed to GetMusicDuration", "0"),
        GETTER(image, GetImageWidth, "image_meta_get_width", "0"),
        GETTER(image, GetImageHeight, "image_meta_get_height", "0"),
        GETTER(image, GetImageOrientation, "image_meta_get_orientation", ""),
        GETTER(image, GetImageLatitude, "media_info_get_latitude", "0"),
        GETTER(image, GetImageLongitude, "media_info_get_longitude", "0"),
        GETTER(video, GetVideoDuration, "video_meta_get_duration", "0"),
        GETTER(video, GetVideoWidth, "video_meta_get_width", "0"),
        GETTER(video, GetVideoHeight, "video_meta_get_height", "0"),
        GETTER(video, GetVideoLatitude, "media_info_get_latitude", "0"),
        GETTER(video, GetVideoLongitude, "media_info_get_longitude", "0"),
        GETTER(video, GetVideoAlbum, "video_meta_get_album", "null"),
        GETTER(video, GetVideoGenre, "video_meta_get_genre", "null"),
        GETTER(folder, GetFolderUUID, "media_folder_get_folder_id", "null"),
        GETTER(folder, GetFolderPath, "media_folder_get_path", "null"),
    };
    // clang-format on
    for (const GetterCase& c : cases) {
        SCOPED_TRACE(c.getter);
        platform.ForgetLog();
        const std::string value = c.get();
        EXPECT_TRUE(!*c.fallback || value == c.fallback) << value;
        const std::vector<LogLine> log = platform.Log();
        ASSERT_EQ(log.size(), 1u);
        const bool isUsual = c.message.find(' ') == std::string::npos;
        EXPECT_EQ(log[0].message, isUsual ? usual[c.object] + c.message : c.message);
        EXPECT_EQ(log[0].function, c.getter);
        EXPECT_EQ(log[0].priority, kTrace);
    }
    EXPECT_EQ(platform.Log()[0].file, "CMediaContentFolder.cpp");
}

TEST_F(MediaModelTest, WrappersGiveBackWhatTheyTookExceptThePlainOne) {
    media_info_s* record = platform.MakeRecord(Sound("/s.amr"));
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

// ---- JSON of items ----

TEST_F(MediaModelTest, AnItemOfEachKind) {
    Item photo = Photo("/opt/storage/usb/sda1/DCIM/IMG_0001.JPG", 1400000000);
    photo.id = "p1";
    photo.title = "IMG_0001";
    photo.mime = "image/jpeg";
    photo.size = 5000000000ULL;
    photo.modified = 1500000000;
    photo.width = 4000;
    photo.height = 3000;
    photo.latitude = 48.856614;
    photo.longitude = 2.3522219;
    EXPECT_EQ(ToJson(photo), Parse(R"({"id":"p1","filename":"IMG_0001.JPG","title":"IMG_0001",
        "fullPathName":"$USB_DIR/sda1/DCIM/IMG_0001.JPG","mime":"image/jpeg","size":"5000000000",
        "addedTime":"1500000000","modifiedTime":"1500000000","description":"","width":"4000",
        "height":"3000","orientation":"normal","latitude":"48.8566","longitude":"2.35222"})"));
    Item video = Video("/opt/media/v.mp4");
    video.id = "v1";
    video.album = "Holiday";
    video.description = "of ours";
    video.latitude = -0.00001;
    EXPECT_EQ(ToJson(video), Parse(R"({"id":"v1","filename":"v.mp4","title":"",
        "fullPathName":"/opt/media/v.mp4","mime":"","size":"0","addedTime":"0","modifiedTime":"0",
        "description":"of ours","latitude":"-1e-05","longitude":"0","album":"Holiday",
        "genre":""})"));
    Item music = Music("/opt/storage/usb/m.mp3");
    music.id = "m1";
    music.artist = "A";
    music.composer = "C";
    music.genre = "G";
    music.track = "3/12";
    EXPECT_EQ(ToJson(music), Parse(R"({"id":"m1","filename":"m.mp3","title":"",
        "fullPathName":"$USB_DIR/m.mp3","mime":"","size":"0","addedTime":"0","modifiedTime":"0",
        "description":"","album":"","artist":"A","genre":"G","composer":"C","tracknum":"3/12"})"));
    EXPECT_TRUE(platform.Log().empty()) << "nothing has failed";
}

TEST_F(MediaModelTest, AnItemOfAnotherOrUnreadableKindIsNull) {
    EXPECT_TRUE(ToJson(Sound("/x")).isNull());
    EXPECT_TRUE(ToJson(Item("/x", MEDIA_CONTENT_TYPE_OTHERS)).isNull());
    EXPECT_TRUE(platform.Messages().empty());
    platform.Fail("media_info_get_media_type", 1, MEDIA_CONTENT_ERROR_DB_FAILED);
    EXPECT_TRUE(ToJson(Sound("/x")).isNull());
    EXPECT_EQ(platform.Messages(kProgress), Strings{"FAILED TO media_info_get_media_type "});
    EXPECT_EQ(platform.Log()[0].function, "GenerateMediaJson");
    EXPECT_EQ(platform.Log()[0].file, "CJsonHelper.cpp");
    keptRecords = 3;
}

TEST_F(MediaModelTest, EveryKeyIsThereWhenEveryGetterFails) {
    for (const char* call :
         {"media_info_get_media_id", "media_info_get_file_path", "media_info_get_size",
          "media_info_get_image", "media_info_get_latitude", "media_info_get_title"})
        platform.Fail(call, 0, MEDIA_CONTENT_ERROR_DB_FAILED);
    const Json::Value item = ToJson(Photo("/opt/storage/usb/a.jpg"));
    EXPECT_EQ(item.size(), 14u);
    for (const char* key : {"id", "fullPathName", "title"}) EXPECT_EQ(item[key].asString(), "");
    for (const char* key : {"size", "width", "height", "latitude"})
        EXPECT_EQ(item[key].asString(), "0");
    for (const std::string& key : item.getMemberNames()) EXPECT_TRUE(item[key].isString());
    EXPECT_TRUE(platform.HasLog(kTrace, "CMediaContentImage - failed to media_info_get_image"));
    EXPECT_TRUE(platform.HasLog(kTrace, "CMediaContentImage - failed to image_meta_get_width"));
}

TEST_F(MediaModelTest, AnItemOfAFolder) {
    const std::pair<int, const char*> kinds[] = {
        {0, "photo"}, {1, "video"}, {2, "unknown"}, {3, "music"}, {4, "unknown"}};
    for (const auto& kind : kinds) {
        Item item("/opt/storage/usb/x.bin", static_cast<media_content_type_e>(kind.first), 7);
        item.id = "i";
        item.size = 12;
        item.modified = 1500000000;
        Json::Value expected = Parse(R"({"id":"i","name":"x.bin","title":"","mime":"","size":"12",
            "addedTime":"1500000000","modifiedTime":"1500000000","description":""})");
        expected["type"] = kind.second;
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
    const auto toClient = [](const std::string& path) {
        return CJsonHelper::ConvertUsbBasePath(path, dorn::CM_CONVERT_TO_CLIENT_PATH);
    };
    const auto toDevice = [](const std::string& path) {
        return CJsonHelper::ConvertUsbBasePath(path, dorn::CM_CONVERT_TO_DEVICE_PATH);
    };
    const std::pair<const char*, const char*> bothWays[] = {
        {"/opt/storage/usb/sda1/a.jpg", "$USB_DIR/sda1/a.jpg"},
        {"/opt/storage/usbdrive/x", "$USB_DIRdrive/x"},
        {"/mnt/opt/storage/usb", "/mnt$USB_DIR"},
        {"/opt/media/a.jpg", "/opt/media/a.jpg"},
    };
    for (const auto& [device, client] : bothWays) {
        EXPECT_EQ(toClient(device), client);
        EXPECT_EQ(toDevice(client), device);
    }
    EXPECT_EQ(toClient("/opt/storage/usb/opt/storage/usb"), "$USB_DIR/opt/storage/usb");
    EXPECT_EQ(toDevice("$USB_DIR$USB_DIR"), "/opt/storage/usb$USB_DIR");
    EXPECT_EQ(CJsonHelper::ConvertUsbBasePath(kRoot, static_cast<dorn::_eCMConvertType>(2)), kRoot);
}

// ---- folders on disk ----

struct Page {
    Json::Value items;
    int added;
};

// `added` items are on the page already.
Page List(const std::string& path, int start, int count, int added = 0) {
    dorn::FetchInfo wanted;
    wanted.startIndex = start;
    wanted.count = count;
    Page page{Json::Value(Json::arrayValue), added};
    CJsonHelper::GenerateBelowFolderJson(page.items, path, wanted, page.added);
    return page;
}

TEST_F(MediaModelTest, VisibleSubfoldersArePaged) {
    TempFolder folder;
    for (const char* name : {"one", "two", "three", ".hidden", "..odd"}) folder.MakeFolder(name);
    folder.MakeFile("file");
    std::filesystem::create_directory_symlink(folder / "one", folder / "link");
    const auto starts = [](int index) {
        return " param.startIndex == count !! count : " + std::to_string(index) + " \n";
    };
    const struct {
        const char* what;
        int start, count, added;
        unsigned listed;
        Strings messages;
    } cases[] = {
        {"all", 0, 10, 0, 3, {starts(0)}},
        {"a full page", 0, 2, 0, 2, {starts(0), " folderCount : 2 \n"}},
        {"exactly all", 0, 3, 0, 3, {starts(0), " folderCount : 3 \n"}},
        {"from the second", 1, 10, 0, 2, {starts(1)}},
        {"behind the last", 3, 10, 0, 0, {}},
        {"before the first", -1, 10, 0, 0, {}},
        {"a page begun before", 0, 4, 2, 2, {starts(0), " folderCount : 4 \n"}},
        {"a page full before", 1, 2, 2, 2, {starts(1)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        platform.ForgetLog();
        const Page page = List(folder.Path(), c.start, c.count, c.added);
        EXPECT_EQ(page.items.size(), c.listed);
        EXPECT_EQ(page.added, c.added + static_cast<int>(c.listed));
        EXPECT_EQ(platform.Messages(), c.messages);
    }
}

TEST_F(MediaModelTest, ASubfolderIsNameAndTime) {
    TempFolder folder;
    const std::string name(255, 'n');
    folder.MakeFolder(name);
    const timespec times[2] = {{100, 0}, {1500000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / name).c_str(), times, 0), 0);
    Json::Value expected = Parse(R"([{"addedTime":1500000000,"modifiedTime":1500000000}])");
    expected[0]["name"] = name;
    EXPECT_EQ(List(folder.Path(), 0, 10).items, expected);
}

TEST_F(MediaModelTest, AFolderThatCannotBeOpenedListsNothing) {
    TempFolder folder;
    folder.MakeFile("file");
    for (const std::string& path : {folder / "gone", folder / "file", std::string()}) {
        platform.ForgetLog();
        const Page page = List(path, 0, 10, 5);
        EXPECT_TRUE(page.items.empty());
        EXPECT_EQ(page.added, 5);
        EXPECT_EQ(platform.Messages(), Strings{"Failed to open DIR"});
    }
}

}  // namespace
}  // namespace test
