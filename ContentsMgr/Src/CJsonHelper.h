#ifndef CONTENTS_MGR_C_JSON_HELPER_H
#define CONTENTS_MGR_C_JSON_HELPER_H

#include <json/json.h>

#include <boost/shared_ptr.hpp>
#include <charconv>
#include <string>
#include <type_traits>

#include "CCMTaskJob.h"
#include "CMediaStorage.h"
#include "MediaContent.h"

namespace dorn {

enum _eCMConvertType : int {
    CM_CONVERT_TO_DEVICE_PATH = 0,  // "$USB_DIR" becomes the USB mount root
    CM_CONVERT_TO_CLIENT_PATH = 1,  // the reverse
};

// The JSON that clients see, and the conversions behind it. Stateless; thread-safe.
class CJsonHelper {
public:
    // Append one element for the record to the array `items`. When a getter fails, its value keeps
    // the fallback. GenerateMediaJson appends null for a record that is neither picture, video nor
    // music.
    static void GenerateMediaJson(media_info_s* info, Json::Value& items);
    static void GenerateFolderMediaJson(media_info_s* info, Json::Value& items);

    // Appends one object per visible subfolder of `folderPath` (a device path), starting at
    // `startIndex` in directory order, until `addedCount` equals the page's count; increments
    // `addedCount` for each. Reads the disk, not the database. Failures are only logged.
    static void GenerateBelowFolderJson(Json::Value& items, std::string folderPath, FetchInfo param,
                                        int& addedCount);

    // Fills `out` with the storage's members, all of them strings; queries the file system for
    // sizes.
    static void GenerateStorageInfoJson(Json::Value& out,
                                        boost::shared_ptr<CMediaStorage>& storage);
    static std::string GetDiskTypeAsString(DeviceClass deviceClass);
    static std::string GetFileSystemAsString(FileSystem fileSystem);

    // Takes ownership of heap text and frees it; "" for null.
    static std::string ConvertCharToString(char* text);

    // Formats the number as a default output stream does, whatever the process's locale.
    template <typename Number>
    static std::string ConvertNumberToString(Number value);

    // Replaces the first occurrence of the root by its token, or of the token by the root, wherever
    // it is in the text; any other text is returned unchanged.
    static std::string ConvertUsbBasePath(std::string path, _eCMConvertType kind);

    static std::string GetOrientationTypeAsString(media_content_orientation_e orientation);
    static std::string GetMediaTypeAsString(media_content_type_e type);

    // "folder", "music", "photo" or "video"; false, with `type` unchanged, for any other word.
    static bool ConvertFromString(std::string word, MediaType& type);
};

template <typename Number>
std::string CJsonHelper::ConvertNumberToString(Number value) {
    char text[32];
    std::to_chars_result end{};
    if constexpr (std::is_floating_point<Number>::value)
        end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
    else
        end = std::to_chars(text, text + sizeof text, value);
    return std::string(text, end.ptr);
}

}  // namespace dorn

#endif
