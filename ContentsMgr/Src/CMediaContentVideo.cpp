#include "CMediaContentVideo.h"

#include "PlatformGetter.h"

namespace dorn {

CMediaContentVideo::CMediaContentVideo() = default;

CMediaContentVideo::~CMediaContentVideo() {
    video_meta_destroy(videoMeta);
    media_info_destroy(mediaInfo);
}

void CMediaContentVideo::SetVideoMetaFromMediaInfo() {
    if (media_info_get_video(mediaInfo, &videoMeta) != 0)
        CM_TRACE("CMediaContentVideo - failed to media_info_get_video");
}

CM_GETTER(int, CMediaContentVideo, GetVideoDuration, 0, video_meta_get_duration, videoMeta,
          "CMediaContentVideo - failed to video_meta_get_duration")
CM_GETTER(int, CMediaContentVideo, GetVideoWidth, 0, video_meta_get_width, videoMeta,
          "CMediaContentVideo - failed to video_meta_get_width")
CM_GETTER(int, CMediaContentVideo, GetVideoHeight, 0, video_meta_get_height, videoMeta,
          "CMediaContentVideo - failed to video_meta_get_height")
CM_GETTER(double, CMediaContentVideo, GetVideoLatitude, 0.0, media_info_get_latitude, mediaInfo,
          "CMediaContentVideo - failed to media_info_get_latitude")
CM_GETTER(double, CMediaContentVideo, GetVideoLongitude, 0.0, media_info_get_longitude, mediaInfo,
          "CMediaContentVideo - failed to media_info_get_longitude")
CM_GETTER(char*, CMediaContentVideo, GetVideoAlbum, nullptr, video_meta_get_album, videoMeta,
          "CMediaContentVideo - failed to video_meta_get_album")
CM_GETTER(char*, CMediaContentVideo, GetVideoGenre, nullptr, video_meta_get_genre, videoMeta,
          "CMediaContentVideo - failed to video_meta_get_genre")

}  // namespace dorn
