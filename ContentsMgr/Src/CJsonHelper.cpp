#include "CJsonHelper.h"

#include <sys/stat.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <cstring>

#include "CMediaContent.h"
#include "CMediaContentImage.h"
#include "CMediaContentMusic.h"
#include "CMediaContentVideo.h"
#include "DirectoryReader.h"
#include "Log.h"
#include "UsbRoot.h"

namespace dorn {
namespace {

using Helper = CJsonHelper;

Json::Value Text(char* text) {
    return Helper::ConvertCharToString(text);
}

Json::Value Seconds(time_t time) {
    return Helper::ConvertNumberToString(static_cast<int>(time));
}

// Both times are the modification time: clients sort by either.
void SetTimes(Json::Value& item, const CMediaContent& content) {
    item["addedTime"] = Seconds(content.GetModifiedTime());
    item["modifiedTime"] = Seconds(content.GetModifiedTime());
}

// The keys shared by pictures, videos and music.
void SetCommonKeys(Json::Value& item, const CMediaContent& content) {
    item["id"] = Text(content.GetUUID());
    item["filename"] = Text(content.GetName());
    item["title"] = Text(content.GetTitle());
    item["fullPathName"] = Helper::ConvertUsbBasePath(
        Helper::ConvertCharToString(content.GetFilePath()), CM_CONVERT_TO_CLIENT_PATH);
    item["mime"] = Text(content.GetMimeType());
    item["size"] = Helper::ConvertNumberToString(content.GetSize());
    SetTimes(item, content);
    item["description"] = Text(content.GetDescription());
}

void FillItem(Json::Value& item, media_info_s* info, CMediaContentImage& image) {
    image.SetMediaInfo(info);
    image.SetImageMetaFromMediaInfo();
    SetCommonKeys(item, image);
    item["width"] = Helper::ConvertNumberToString(image.GetImageWidth());
    item["height"] = Helper::ConvertNumberToString(image.GetImageHeight());
    item["orientation"] = Helper::GetOrientationTypeAsString(image.GetImageOrientation());
    item["latitude"] = Helper::ConvertNumberToString(image.GetImageLatitude());
    item["longitude"] = Helper::ConvertNumberToString(image.GetImageLongitude());
}

void FillItem(Json::Value& item, media_info_s* info, CMediaContentVideo& video) {
    video.SetMediaInfo(info);
    video.SetVideoMetaFromMediaInfo();
    SetCommonKeys(item, video);
    item["latitude"] = Helper::ConvertNumberToString(video.GetVideoLatitude());
    item["longitude"] = Helper::ConvertNumberToString(video.GetVideoLongitude());
    item["album"] = Text(video.GetVideoAlbum());
    item["genre"] = Text(video.GetVideoGenre());
}

void FillItem(Json::Value& item, media_info_s* info, CMediaContentMusic& music) {
    music.SetMediaInfo(info);
    music.SetMusicMetaFromMediaInfo();
    SetCommonKeys(item, music);
    item["album"] = Text(music.GetMusicAlbum());
    item["artist"] = Text(music.GetMusicArtist());
    item["genre"] = Text(music.GetMusicGenre());
    item["composer"] = Text(music.GetMusicComposer());
    item["tracknum"] = Text(music.GetMusicTrackNum());
}

// A record of any other kind adds no members, but is kept like any record that was shown.
void FillItem(Json::Value&, media_info_s* info, CMediaContent& content) {
    content.SetMediaInfo(info);
}

template <typename Content>
void FillItemAs(Json::Value& item, media_info_s* info) {
    const auto content = boost::make_shared<Content>();
    FillItem(item, info, *content);
}

// The caller keeps `status` from one subfolder to the next: if stat fails, a subfolder shows the
// times of the one before it.
Json::Value SubfolderItem(const std::string& folderPath, const char* name, struct stat& status) {
    static_cast<void>(stat((folderPath + "/" + name).c_str(), &status));
    Json::Value item;
    item["name"] = name;
    item["addedTime"] = static_cast<Json::Int>(status.st_mtime);
    item["modifiedTime"] = static_cast<Json::Int>(status.st_mtime);
    return item;
}

std::string ReplaceFirst(const std::string& text, const char* what, const char* with) {
    std::string result = text;
    const size_t at = text.find(what);
    if (at != std::string::npos) result.replace(at, strlen(what), with);
    return result;
}

}  // namespace

void CJsonHelper::GenerateMediaJson(media_info_s* info, Json::Value& items) {
    Json::Value item;
    auto type = MEDIA_CONTENT_TYPE_OTHERS;
    if (media_info_get_media_type(info, &type) != 0)
        CM_PROGRESS("FAILED TO media_info_get_media_type ");
    switch (type) {
        case MEDIA_CONTENT_TYPE_IMAGE:
            FillItemAs<CMediaContentImage>(item, info);
            break;
        case MEDIA_CONTENT_TYPE_VIDEO:
            FillItemAs<CMediaContentVideo>(item, info);
            break;
        case MEDIA_CONTENT_TYPE_MUSIC:
            FillItemAs<CMediaContentMusic>(item, info);
            break;
        default:
            FillItemAs<CMediaContent>(item, info);
            break;
    }
    items.append(std::move(item));
}

void CJsonHelper::GenerateFolderMediaJson(media_info_s* info, Json::Value& items) {
    const auto content = boost::make_shared<CMediaContent>();
    content->SetMediaInfo(info);
    Json::Value item;
    item["id"] = Text(content->GetUUID());
    item["name"] = Text(content->GetName());
    item["type"] = GetMediaTypeAsString(content->GetMediaType());
    item["title"] = Text(content->GetTitle());
    item["mime"] = Text(content->GetMimeType());
    item["size"] = ConvertNumberToString(content->GetSize());
    SetTimes(item, *content);
    item["description"] = Text(content->GetDescription());
    items.append(std::move(item));
}

void CJsonHelper::GenerateBelowFolderJson(Json::Value& items, std::string folderPath,
                                          FetchInfo param, int& addedCount) {
    DirectoryReader reader(folderPath);
    if (!reader.IsOpen()) {
        CM_PROGRESS("Failed to open DIR");
        return;
    }
    struct stat status {};
    int count = 0;
    bool collecting = false;
    DirectoryReader::Step step;
    while ((step = reader.Next()) == DirectoryReader::Step::Subfolder) {
        if (count == param.startIndex) {
            CM_TRACE(" param.startIndex == count !! count : %d \n", count);
            collecting = true;
        }
        ++count;
        if (!collecting) continue;
        items.append(SubfolderItem(folderPath, reader.Name(), status));
        if (++addedCount == param.count) {
            CM_TRACE(" folderCount : %d \n", addedCount);
            return;
        }
    }
    const bool closed = reader.Close();
    if (!closed || step != DirectoryReader::Step::End)
        CM_PROGRESS("Failed while reading entries!!, %s", folderPath.c_str());
}

void CJsonHelper::GenerateStorageInfoJson(Json::Value& out,
                                          boost::shared_ptr<CMediaStorage>& storage) {
    const std::string mountPath = storage->GetDeviceMountPath();
    const bool mounted = mountPath != kNoMountPath;
    out["id"] = storage->GetDeviceID();
    out["name"] = storage->GetModelName();
    out["totalSize"] =
        mounted ? ConvertNumberToString(storage->GetDeviceTotalSize()) : ConvertNumberToString(0);
    out["availableSize"] = mounted ? ConvertNumberToString(storage->GetDeviceAvailableSize())
                                   : ConvertNumberToString(0);
    out["mountPath"] = ConvertUsbBasePath(mountPath, CM_CONVERT_TO_CLIENT_PATH);
    out["fileSystem"] = GetFileSystemAsString(storage->GetFileSystem());
    out["serialNumber"] = storage->GetSerial();
    out["vendor"] = storage->GetManufacturer();
    if (storage->GetDeviceClass() == DEVICE_CLASS_PTP) {
        out["deviceAddress"] = ConvertNumberToString(storage->GetAddress());
        out["deviceBus"] = ConvertNumberToString(storage->GetBus());
    }
    out["partitionLabel"] = storage->GetPartitionLabel();
    out["type"] = GetDiskTypeAsString(storage->GetDeviceClass());
}

std::string CJsonHelper::GetDiskTypeAsString(DeviceClass deviceClass) {
    switch (deviceClass) {
        case DEVICE_CLASS_MSC:
            return "msc";
        case DEVICE_CLASS_PTP:
            return "ptp";
        default:
            return "unknown";
    }
}

std::string CJsonHelper::GetFileSystemAsString(FileSystem fileSystem) {
    switch (fileSystem) {
        case FILE_SYSTEM_VFAT:
            return "VFAT";
        case FILE_SYSTEM_EXT4:
            return "EXT4";
        case FILE_SYSTEM_NTFS:
            return "NTFS";
        default:
            return "UNKNOWN";
    }
}

std::string CJsonHelper::ConvertCharToString(char* text) {
    if (!text) return std::string();
    std::string result(text);
    free(text);
    return result;
}

std::string CJsonHelper::ConvertUsbBasePath(std::string path, _eCMConvertType kind) {
    switch (kind) {
        case CM_CONVERT_TO_CLIENT_PATH:
            return ReplaceFirst(path, kUsbRoot, kUsbRootToken);
        case CM_CONVERT_TO_DEVICE_PATH:
            return ReplaceFirst(path, kUsbRootToken, kUsbRoot);
        default:
            return path;
    }
}

std::string CJsonHelper::GetOrientationTypeAsString(media_content_orientation_e orientation) {
    static constexpr const char* kWords[] = {
        "notAvailable", "normal",          "flipHorizontal", "rotate180Degrees", "flipVertical",
        "transpose",    "rotate90Degrees", "transverse",     "rotate270Degrees",
    };
    const int value = orientation;
    const bool known = value >= 0 && value < static_cast<int>(sizeof kWords / sizeof *kWords);
    return kWords[known ? value : 0];
}

std::string CJsonHelper::GetMediaTypeAsString(media_content_type_e type) {
    switch (type) {
        case MEDIA_CONTENT_TYPE_IMAGE:
            return "photo";
        case MEDIA_CONTENT_TYPE_VIDEO:
            return "video";
        case MEDIA_CONTENT_TYPE_MUSIC:
            return "music";
        default:
            return "unknown";
    }
}

bool CJsonHelper::ConvertFromString(std::string word, MediaType& type) {
    static constexpr struct {
        const char* word;
        MediaType type;
    } kWords[] = {
        {"folder", MEDIA_TYPE_FOLDER},
        {"music", MEDIA_TYPE_MUSIC},
        {"photo", MEDIA_TYPE_PHOTO},
        {"video", MEDIA_TYPE_VIDEO},
    };
    for (const auto& entry : kWords) {
        if (word != entry.word) continue;
        type = entry.type;
        return true;
    }
    return false;
}

}  // namespace dorn
