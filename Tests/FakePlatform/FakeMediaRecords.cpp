// The records of the scripted platform: media items, their metadata, and folders.
#include "Seam.h"

using fake::Item;
using fake::Seam;
using fake::Text;

namespace {

template <typename Handle, typename Out, typename Value>
int GetField(const char* call, Handle* record, Out* out, Value Item::*field) {
    return Seam::Get<Handle>(call, record, out, [field](const Handle& r) { return r.item.*field; });
}

// The metadata record of an item, when it is of that kind.
template <typename Meta>
int GetMeta(const char* call, media_info_h media, Meta** meta, media_content_type_e kind,
            media_content_type_e otherKind) {
    const int error = Seam::Enter(call);
    auto* known = Seam::Use<media_info_s>(call, media);
    if (error) return error;
    if (!known) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    if (known->item.type != kind && known->item.type != otherKind)
        return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    *meta = Seam::Keep(new Meta(known->item));
    return 0;
}

// Defines one getter of a field of the item behind a record.
#define GETTER(handle, function, type, field)                 \
    int function(handle##_s* record, type* out) {             \
        return GetField(__func__, record, out, &Item::field); \
    }

}  // namespace

extern "C" {

int media_info_clone(media_info_h* dst, media_info_h src) {
    const int error = Seam::Enter(__func__);
    auto* known = Seam::Use<media_info_s>(__func__, src);
    if (error) return error;
    if (!known) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    *dst = Seam::Keep(new media_info_s(known->item));
    return 0;
}

int media_info_destroy(media_info_h media) {
    return Seam::Destroy<media_info_s>(__func__, media, MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
}

int media_info_get_media_id(media_info_h media, char** media_id) {
    return Seam::Get<media_info_s>(__func__, media, media_id,
                                   [](const media_info_s& m) { return Text(m.item.id); });
}
int media_info_get_file_path(media_info_h media, char** path) {
    return Seam::Get<media_info_s>(__func__, media, path,
                                   [](const media_info_s& m) { return Text(m.item.path); });
}
GETTER(media_info, media_info_get_display_name, char*, name)
GETTER(media_info, media_info_get_media_type, media_content_type_e, type)
GETTER(media_info, media_info_get_mime_type, char*, mime)
GETTER(media_info, media_info_get_size, unsigned long long, size)
GETTER(media_info, media_info_get_added_time, time_t, added)
GETTER(media_info, media_info_get_modified_time, time_t, modified)
GETTER(media_info, media_info_get_thumbnail_path, char*, thumbnail)
GETTER(media_info, media_info_get_description, char*, description)
GETTER(media_info, media_info_get_title, char*, title)
GETTER(media_info, media_info_get_rating, int, rating)
GETTER(media_info, media_info_get_latitude, double, latitude)
GETTER(media_info, media_info_get_longitude, double, longitude)

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
    return Seam::Destroy<audio_meta_s>(__func__, audio, MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
}
GETTER(audio_meta, audio_meta_get_album, char*, album)
GETTER(audio_meta, audio_meta_get_artist, char*, artist)
GETTER(audio_meta, audio_meta_get_genre, char*, genre)
GETTER(audio_meta, audio_meta_get_composer, char*, composer)
GETTER(audio_meta, audio_meta_get_copyright, char*, copyright)
GETTER(audio_meta, audio_meta_get_track_num, char*, track)
GETTER(audio_meta, audio_meta_get_bit_rate, int, bitRate)
GETTER(audio_meta, audio_meta_get_duration, int, duration)

int image_meta_destroy(image_meta_h image) {
    return Seam::Destroy<image_meta_s>(__func__, image, MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
}
GETTER(image_meta, image_meta_get_width, int, width)
GETTER(image_meta, image_meta_get_height, int, height)
GETTER(image_meta, image_meta_get_orientation, media_content_orientation_e, orientation)

int video_meta_destroy(video_meta_h video) {
    return Seam::Destroy<video_meta_s>(__func__, video, MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
}
GETTER(video_meta, video_meta_get_duration, int, duration)
GETTER(video_meta, video_meta_get_width, int, width)
GETTER(video_meta, video_meta_get_height, int, height)
GETTER(video_meta, video_meta_get_album, char*, album)
GETTER(video_meta, video_meta_get_genre, char*, genre)

int media_folder_clone(media_folder_h* dst, media_folder_h src) {
    const int error = Seam::Enter(__func__);
    auto* known = Seam::Use<media_folder_s>(__func__, src);
    if (error) return error;
    if (!known) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    *dst = Seam::Keep(new media_folder_s(known->folder));
    return 0;
}

int media_folder_destroy(media_folder_h folder) {
    return Seam::Destroy<media_folder_s>(__func__, folder, MEDIA_CONTENT_ERROR_INVALID_PARAMETER);
}

int media_folder_get_folder_id(media_folder_h folder, char** folder_id) {
    return Seam::Get<media_folder_s>(__func__, folder, folder_id,
                                     [](const media_folder_s& f) { return Text(f.folder.id); });
}

int media_folder_get_path(media_folder_h folder, char** path) {
    return Seam::Get<media_folder_s>(__func__, folder, path,
                                     [](const media_folder_s& f) { return Text(f.folder.path); });
}

}  // extern "C"
