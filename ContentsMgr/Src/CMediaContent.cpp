#include "CMediaContent.h"

#include "PlatformGetter.h"

namespace dorn {

CMediaContent::CMediaContent() = default;
CMediaContent::~CMediaContent() = default;

void CMediaContent::SetMediaInfo(media_info_s* info) {
    media_info_clone(&mediaInfo, info);
}

CM_GETTER(char*, CMediaContent, GetUUID, nullptr, media_info_get_media_id, mediaInfo,
          "CMediaContent - failed to media_info_get_media_id")
CM_GETTER(char*, CMediaContent, GetFilePath, nullptr, media_info_get_file_path, mediaInfo,
          "CMediaContent - failed to media_info_get_file_path")
CM_GETTER(char*, CMediaContent, GetName, nullptr, media_info_get_display_name, mediaInfo,
          "CMediaContent - failed to media_info_get_display_name")
CM_GETTER(media_content_type_e, CMediaContent, GetMediaType, MEDIA_CONTENT_TYPE_IMAGE,
          media_info_get_media_type, mediaInfo,
          "CMediaContent - failed to media_info_get_media_type")
CM_GETTER(char*, CMediaContent, GetMimeType, nullptr, media_info_get_mime_type, mediaInfo,
          "CMediaContent - failed to media_info_get_mime_type")
CM_GETTER(unsigned long long, CMediaContent, GetSize, 0, media_info_get_size, mediaInfo,
          "CMediaContent - failed to media_info_get_size")
CM_GETTER(time_t, CMediaContent, GetAddedTime, 0, media_info_get_added_time, mediaInfo,
          "CMediaContent - failed to media_info_get_added_time")
CM_GETTER(time_t, CMediaContent, GetModifiedTime, 0, media_info_get_modified_time, mediaInfo,
          "[ContentsManager plugin] - failed to media_info_get_modified_time")
CM_GETTER(char*, CMediaContent, GetThumbnailPath, nullptr, media_info_get_thumbnail_path, mediaInfo,
          "CMediaContent - failed to media_info_get_thumbnail_path")
CM_GETTER(char*, CMediaContent, GetDescription, nullptr, media_info_get_description, mediaInfo,
          "CMediaContent - failed to media_info_get_description")
CM_GETTER(char*, CMediaContent, GetTitle, nullptr, media_info_get_title, mediaInfo,
          "CMediaContent- failed to media_info_get_title")
CM_GETTER(int, CMediaContent, GetRating, 0, media_info_get_rating, mediaInfo,
          "CMediaContent- failed to media_info_get_rating")

}  // namespace dorn
