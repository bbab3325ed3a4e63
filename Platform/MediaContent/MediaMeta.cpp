// The C interface: the metadata of one kind of item.
#include "MediaContent/Handles.h"

using platform::GiveText;
using platform::ItemText;

namespace {

// A metadata handle is a view into the item's record and holds a reference to it.
template <typename Meta>
int GiveMeta(media_info_h media, Meta media_info_s::*view, bool rightKind, Meta** out) {
    if (!media || !out) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    if (!rightKind) return MEDIA_CONTENT_ERROR_INVALID_OPERATION;
    intrusive_ptr_add_ref(media);
    *out = &(media->*view);
    return MEDIA_CONTENT_ERROR_NONE;
}

template <typename Meta>
int DropMeta(Meta* meta) {
    if (!meta) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    intrusive_ptr_release(meta->item);
    return MEDIA_CONTENT_ERROR_NONE;
}

template <typename Meta>
int GiveMember(Meta* meta, ItemText which, char** out) {
    if (!meta || !out) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveText(meta->item->texts[which], out);
}

template <typename Meta>
int GiveMember(Meta* meta, int32_t media_info_s::*member, int* out) {
    if (!meta || !out) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    *out = meta->item->*member;
    return MEDIA_CONTENT_ERROR_NONE;
}

bool IsOf(media_info_h media, media_content_type_e type) {
    return media && media->type == type;
}

}  // namespace

int media_info_get_audio(media_info_h media, audio_meta_h* audio) {
    const bool isAudio =
        IsOf(media, MEDIA_CONTENT_TYPE_MUSIC) || IsOf(media, MEDIA_CONTENT_TYPE_SOUND);
    return GiveMeta(media, &media_info_s::audio, isAudio, audio);
}

int media_info_get_image(media_info_h media, image_meta_h* image) {
    return GiveMeta(media, &media_info_s::image, IsOf(media, MEDIA_CONTENT_TYPE_IMAGE), image);
}

int media_info_get_video(media_info_h media, video_meta_h* video) {
    return GiveMeta(media, &media_info_s::video, IsOf(media, MEDIA_CONTENT_TYPE_VIDEO), video);
}

int audio_meta_destroy(audio_meta_h audio) {
    return DropMeta(audio);
}

int audio_meta_get_album(audio_meta_h audio, char** album) {
    return GiveMember(audio, ItemText::Album, album);
}

int audio_meta_get_artist(audio_meta_h audio, char** artist) {
    return GiveMember(audio, ItemText::Artist, artist);
}

int audio_meta_get_genre(audio_meta_h audio, char** genre) {
    return GiveMember(audio, ItemText::Genre, genre);
}

int audio_meta_get_composer(audio_meta_h audio, char** composer) {
    return GiveMember(audio, ItemText::Composer, composer);
}

int audio_meta_get_copyright(audio_meta_h audio, char** copyright) {
    return GiveMember(audio, ItemText::Copyright, copyright);
}

int audio_meta_get_track_num(audio_meta_h audio, char** track_num) {
    return GiveMember(audio, ItemText::Track, track_num);
}

int audio_meta_get_bit_rate(audio_meta_h audio, int* bit_rate) {
    return GiveMember(audio, &media_info_s::bitRate, bit_rate);
}

int audio_meta_get_duration(audio_meta_h audio, int* duration) {
    return GiveMember(audio, &media_info_s::duration, duration);
}

int image_meta_destroy(image_meta_h image) {
    return DropMeta(image);
}

int image_meta_get_width(image_meta_h image, int* width) {
    return GiveMember(image, &media_info_s::width, width);
}

int image_meta_get_height(image_meta_h image, int* height) {
    return GiveMember(image, &media_info_s::height, height);
}

int image_meta_get_orientation(image_meta_h image, media_content_orientation_e* orientation) {
    if (!image || !orientation) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    *orientation = static_cast<media_content_orientation_e>(image->item->orientation);
    return MEDIA_CONTENT_ERROR_NONE;
}

int video_meta_destroy(video_meta_h video) {
    return DropMeta(video);
}

int video_meta_get_duration(video_meta_h video, int* duration) {
    return GiveMember(video, &media_info_s::duration, duration);
}

int video_meta_get_width(video_meta_h video, int* width) {
    return GiveMember(video, &media_info_s::width, width);
}

int video_meta_get_height(video_meta_h video, int* height) {
    return GiveMember(video, &media_info_s::height, height);
}

int video_meta_get_album(video_meta_h video, char** album) {
    return GiveMember(video, ItemText::Album, album);
}

int video_meta_get_genre(video_meta_h video, char** genre) {
    return GiveMember(video, ItemText::Genre, genre);
}
