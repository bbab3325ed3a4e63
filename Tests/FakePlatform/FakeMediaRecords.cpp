// The records of the scripted platform: media items, their metadata, and folders.
#include "Seam.h"

using fake::Seam;

namespace {

// The metadata record of an item, when it is of that kind.
template <typename Meta>
int GetMeta(const char* call, media_info_h media, Meta** meta, media_content_type_e kind,
            media_content_type_e otherKind) {
    return Seam::With<media_info_s>(call, media, [=](const media_info_s& info) {
        if (info.record.type != kind && info.record.type != otherKind)
            return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
        *meta = Seam::Keep(new Meta(info.record));
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

}  // namespace

extern "C" {

int media_info_clone(media_info_h* dst, media_info_h src) {
    return Seam::Clone<media_info_s>(__func__, dst, src);
}
int media_info_destroy(media_info_h media) {
    return Seam::Destroy<media_info_s>(__func__, media);
}
FAKE_GETTER(media_info_s, media_info_get_media_id, char*, id)
FAKE_GETTER(media_info_s, media_info_get_file_path, char*, path)
FAKE_GETTER(media_info_s, media_info_get_display_name, char*, name)
FAKE_GETTER(media_info_s, media_info_get_media_type, media_content_type_e, type)
FAKE_GETTER(media_info_s, media_info_get_mime_type, char*, mime)
FAKE_GETTER(media_info_s, media_info_get_size, unsigned long long, size)
FAKE_GETTER(media_info_s, media_info_get_added_time, time_t, added)
FAKE_GETTER(media_info_s, media_info_get_modified_time, time_t, modified)
FAKE_GETTER(media_info_s, media_info_get_thumbnail_path, char*, thumbnail)
FAKE_GETTER(media_info_s, media_info_get_description, char*, description)
FAKE_GETTER(media_info_s, media_info_get_title, char*, title)
FAKE_GETTER(media_info_s, media_info_get_rating, int, rating)
FAKE_GETTER(media_info_s, media_info_get_latitude, double, latitude)
FAKE_GETTER(media_info_s, media_info_get_longitude, double, longitude)

int media_info_get_audio(media_info_h media, audio_meta_h* audio) {
    return GetMeta(__func__, media, audio, MEDIA_CONTENT_TYPE_MUSIC, MEDIA_CONTENT_TYPE_SOUND);
}
int media_info_get_image(media_info_h media, image_meta_h* image) {
    return GetMeta(__func__, media, image, MEDIA_CONTENT_TYPE_IMAGE, MEDIA_CONTENT_TYPE_IMAGE);
}
int media_info_get_video(media_info_h media, video_meta_h* video) {
    return GetMeta(__func__, media, video, MEDIA_CONTENT_TYPE_VIDEO, MEDIA_CONTENT_TYPE_VIDEO);
}

int audio_meta_destroy(audio_meta_h audio) {
    return Seam::Destroy<audio_meta_s>(__func__, audio);
}
FAKE_GETTER(audio_meta_s, audio_meta_get_album, char*, album)
FAKE_GETTER(audio_meta_s, audio_meta_get_artist, char*, artist)
FAKE_GETTER(audio_meta_s, audio_meta_get_genre, char*, genre)
FAKE_GETTER(audio_meta_s, audio_meta_get_composer, char*, composer)
FAKE_GETTER(audio_meta_s, audio_meta_get_copyright, char*, copyright)
FAKE_GETTER(audio_meta_s, audio_meta_get_track_num, char*, track)
FAKE_GETTER(audio_meta_s, audio_meta_get_bit_rate, int, bitRate)
FAKE_GETTER(audio_meta_s, audio_meta_get_duration, int, duration)

int image_meta_destroy(image_meta_h image) {
    return Seam::Destroy<image_meta_s>(__func__, image);
}
FAKE_GETTER(image_meta_s, image_meta_get_width, int, width)
FAKE_GETTER(image_meta_s, image_meta_get_height, int, height)
FAKE_GETTER(image_meta_s, image_meta_get_orientation, media_content_orientation_e, orientation)

int video_meta_destroy(video_meta_h video) {
    return Seam::Destroy<video_meta_s>(__func__, video);
}
FAKE_GETTER(video_meta_s, video_meta_get_duration, int, duration)
FAKE_GETTER(video_meta_s, video_meta_get_width, int, width)
FAKE_GETTER(video_meta_s, video_meta_get_height, int, height)
FAKE_GETTER(video_meta_s, video_meta_get_album, char*, album)
FAKE_GETTER(video_meta_s, video_meta_get_genre, char*, genre)

int media_folder_clone(media_folder_h* dst, media_folder_h src) {
    return Seam::Clone<media_folder_s>(__func__, dst, src);
}
int media_folder_destroy(media_folder_h folder) {
    return Seam::Destroy<media_folder_s>(__func__, folder);
}
FAKE_GETTER(media_folder_s, media_folder_get_folder_id, char*, id)
FAKE_GETTER(media_folder_s, media_folder_get_path, char*, path)

}  // extern "C"
