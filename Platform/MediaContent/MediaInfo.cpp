// The C interface: items.
#include <limits.h>

#include <algorithm>

#include "MediaContent/Handles.h"
#include "MediaContent/Reader.h"
#include "MediaContent/Service.h"

using platform::GiveText;
using platform::Guarded;
using platform::ItemText;
using platform::MediaRecord;
using platform::Reader;
using platform::Service;
using platform::Session;
using platform::WithDatabase;

namespace {

template <typename Value, typename Out>
int GiveNumber(Value value, Out* out) {
    *out = static_cast<Out>(value);
    return MEDIA_CONTENT_ERROR_NONE;
}

int GiveMember(media_info_h media, ItemText which, char** out) {
    if (!media || !out) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveText(media->texts[which], out);
}

}  // namespace

int media_info_get_media_count_from_db(media_filter_h filter, int* media_count) {
    if (!media_count) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session& session) {
        const int64_t count =
            Reader(session.store).CountItems(Service::Get().GetStorages().ScopeOf(filter), filter);
        return GiveNumber(std::min<int64_t>(count, INT_MAX), media_count);
    });
}

int media_info_foreach_media_from_db(media_filter_h filter, media_info_cb callback,
                                     void* user_data) {
    if (!callback) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session& session) {
        Reader(session.store)
            .ListItems(
                Service::Get().GetStorages().ScopeOf(filter), 0, filter,
                [&](const MediaRecord& record) { return callback(record.get(), user_data); });
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_info_insert_to_db(const char* path, media_info_h* media) {
    if (!path || !*path || !media) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        MediaRecord record;
        const int error = Service::Get().Insert(path, record);
        if (error == MEDIA_CONTENT_ERROR_NONE) *media = record.detach();
        return error;
    });
}

int media_info_delete_from_db(const char* media_id) {
    if (!media_id || !*media_id) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] { return Service::Get().Remove(media_id); });
}

int media_info_clone(media_info_h* dst, media_info_h src) {
    return platform::CloneHandle(dst, src);
}

int media_info_destroy(media_info_h media) {
    return platform::DestroyHandle(media);
}

int media_info_get_media_id(media_info_h media, char** media_id) {
    return GiveMember(media, ItemText::Id, media_id);
}

int media_info_get_file_path(media_info_h media, char** path) {
    if (!media || !path) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveText(media->texts.Path(), path);
}

int media_info_get_display_name(media_info_h media, char** name) {
    return GiveMember(media, ItemText::Name, name);
}

int media_info_get_media_type(media_info_h media, media_content_type_e* type) {
    if (!media || !type) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(media->type, type);
}

int media_info_get_mime_type(media_info_h media, char** mime_type) {
    return GiveMember(media, ItemText::Mime, mime_type);
}

int media_info_get_size(media_info_h media, unsigned long long* size) {
    if (!media || !size) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(media->size, size);
}

int media_info_get_added_time(media_info_h media, time_t* added_time) {
    if (!media || !added_time) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(media->added, added_time);
}

int media_info_get_modified_time(media_info_h media, time_t* modified_time) {
    if (!media || !modified_time) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(media->modified, modified_time);
}

// The service makes no thumbnails.
int media_info_get_thumbnail_path(media_info_h media, char** path) {
    if (!media || !path) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveText({}, path);
}

int media_info_get_description(media_info_h media, char** description) {
    return GiveMember(media, ItemText::Description, description);
}

int media_info_get_title(media_info_h media, char** title) {
    return GiveMember(media, ItemText::Title, title);
}

// Nothing that the service reads carries a rating.
int media_info_get_rating(media_info_h media, int* rating) {
    if (!media || !rating) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(0, rating);
}

int media_info_get_latitude(media_info_h media, double* latitude) {
    if (!media || !latitude) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(media->latitude, latitude);
}

int media_info_get_longitude(media_info_h media, double* longitude) {
    if (!media || !longitude) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return GiveNumber(media->longitude, longitude);
}
