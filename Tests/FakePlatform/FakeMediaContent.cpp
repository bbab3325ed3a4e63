// The media content service of the scripted platform.
#include "Seam.h"

using fake::FakePlatform;
using fake::Filter;
using fake::Folder;
using fake::Item;
using fake::Needs;
using fake::Script;
using fake::Seam;
using fake::Storage;

namespace {

bool LiesBelow(const std::string& path, const std::string& folder) {
    return path.compare(0, folder.size() + 1, folder + "/") == 0;
}

// The media types that a condition names, as a set of digits; empty for a text that is not a
// condition over MEDIA_TYPE.
std::string TypesOf(const std::string& condition) {
    static const std::string name = "MEDIA_TYPE";
    std::string types;
    for (size_t at = condition.find(name); at != std::string::npos;
         at = condition.find(name, at + 1)) {
        const size_t digit = condition.find_first_not_of(" =", at + name.size());
        if (digit != std::string::npos) types += condition[digit];
    }
    return types;
}

// Enters a count or listing and copies the filter as it is.
int EnterWith(const char* call, media_filter_h handle, Filter& filter) {
    if (const int error = Seam::Enter(call, Needs::Media)) return error;
    if (auto* known = Seam::Use<media_filter_s>(call, handle)) filter = known->filter;
    const bool sound = filter.condition.empty() || !TypesOf(filter.condition).empty() ||
                       filter.condition == "FOLDER_STORAGE_TYPE = 1";
    return sound ? 0 : MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
}

bool Passes(const Script& script, const Item& item, const Filter& filter) {
    const char type = static_cast<char>('0' + item.type);
    if (!filter.condition.empty() && TypesOf(filter.condition).find(type) == std::string::npos)
        return false;
    const auto holdsIt = [&](const Storage& storage) {
        return storage.id == filter.storage && LiesBelow(item.path, storage.path);
    };
    return filter.storage.empty() ||
           std::any_of(script.storages.begin(), script.storages.end(), holdsIt);
}

// Items that pass the filter, in that folder only when one is given; neither ordered nor ranged.
std::vector<Item> Select(const Filter& filter, const char* folderId) {
    const auto script = Seam::Lock();
    std::vector<Item> items;
    std::string folderPath;
    for (const Folder& folder : script->folders)
        if (folderId && folder.id == folderId) folderPath = folder.path;
    for (const Item& item : script->items)
        if ((!folderId || item.Folder() == folderPath) && Passes(*script, item, filter))
            items.push_back(item);
    return items;
}

std::vector<Item> Arrange(std::vector<Item> items, const Filter& filter) {
    if (filter.orderKey == "MEDIA_ADDED_TIME") {
        const auto older = [](const Item& a, const Item& b) { return a.added < b.added; };
        std::stable_sort(items.begin(), items.end(), older);
        if (filter.order == MEDIA_CONTENT_ORDER_DESC) std::reverse(items.begin(), items.end());
    }
    if (filter.offset < 0) return items;
    const auto begin =
        items.begin() + std::min<long>(filter.offset, static_cast<long>(items.size()));
    const auto end = begin + std::min<long>(filter.count, items.end() - begin);
    return std::vector<Item>(begin, end);
}

int Count(const char* call, media_filter_h handle, const char* folderId, int* count) {
    Filter filter;
    if (const int error = EnterWith(call, handle, filter)) return error;
    *count = static_cast<int>(Select(filter, folderId).size());
    return 0;
}

int List(const char* call, media_filter_h handle, const char* folderId, media_info_cb callback,
         void* userData) {
    Filter filter;
    if (const int error = EnterWith(call, handle, filter)) return error;
    Seam::ForEach<media_info_s>(call, Arrange(Select(filter, folderId), filter), callback,
                                userData);
    return 0;
}

template <typename Set>
int SetFilter(const char* call, media_filter_h handle, Set set) {
    return Seam::With<media_filter_s>(call, handle, [=](media_filter_s& known) {
        set(known.filter);
        return 0;
    });
}

}  // namespace

extern "C" {

int media_content_connect(void) {
    return Seam::Run(__func__, Needs::Nothing,
                     [](Script& script) { return ++script.connections, 0; });
}

int media_content_disconnect(void) {
    return Seam::Run(__func__, Needs::Media,
                     [](Script& script) { return --script.connections, 0; });
}

int media_content_scan_folder(const char* path, bool is_recursive, media_scan_completed_cb callback,
                              void* user_data) {
    if (const int error = Seam::Enter(__func__, Needs::Media)) return error;
    if (!path || !callback || is_recursive) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    auto script = Seam::Lock();
    script->folderScans.emplace_back(callback, user_data);
    const bool later = script->scansFoldersLater;
    script.lock.unlock();
    if (!later) FakePlatform::Get().CompleteFolderScans();
    return 0;
}

int media_content_set_db_updated_cb(media_content_db_updated_cb callback, void* user_data) {
    return Seam::SetReceiver(__func__, &Script::dbReceivers, std::make_pair(callback, user_data));
}

int media_filter_create(media_filter_h* filter) {
    if (const int error = Seam::Enter(__func__)) return error;
    *filter = Seam::Keep(new media_filter_s);
    return 0;
}

int media_filter_destroy(media_filter_h filter) {
    return Seam::Destroy<media_filter_s>(__func__, filter);
}

int media_filter_set_storage(media_filter_h filter, const char* storage_id) {
    return SetFilter(__func__, filter, [=](Filter& f) { f.storage = storage_id; });
}

int media_filter_set_condition(media_filter_h filter, const char* condition,
                               media_content_collation_e) {
    return SetFilter(__func__, filter, [=](Filter& f) { f.condition = condition; });
}

int media_filter_set_order(media_filter_h filter, media_content_order_e order_type,
                           const char* order_keyword, media_content_collation_e) {
    return SetFilter(__func__, filter, [=](Filter& f) {
        f.order = order_type;
        f.orderKey = order_keyword;
    });
}

int media_filter_set_offset(media_filter_h filter, int offset, int count) {
    return SetFilter(__func__, filter, [=](Filter& f) {
        f.offset = offset;
        f.count = count;
    });
}

int media_info_get_media_count_from_db(media_filter_h filter, int* media_count) {
    return Count(__func__, filter, nullptr, media_count);
}

int media_info_foreach_media_from_db(media_filter_h filter, media_info_cb callback,
                                     void* user_data) {
    return List(__func__, filter, nullptr, callback, user_data);
}

int media_folder_get_media_count_from_db(const char* folder_id, media_filter_h filter, int* count) {
    return Count(__func__, filter, folder_id, count);
}

int media_folder_foreach_media_from_db(const char* folder_id, media_filter_h filter,
                                       media_info_cb callback, void* user_data) {
    return List(__func__, filter, folder_id, callback, user_data);
}

int media_folder_foreach_folder_from_db(media_filter_h filter, media_folder_cb callback,
                                        void* user_data) {
    Filter used;
    if (const int error = EnterWith(__func__, filter, used)) return error;
    const std::vector<Folder> folders = Seam::Lock()->folders;
    Seam::ForEach<media_folder_s>(__func__, folders, callback, user_data);
    return 0;
}

int media_info_insert_to_db(const char* path, media_info_h* media) {
    std::vector<Item> inserted;
    const int error = Seam::Run(__func__, Needs::Media, [&](Script& script) {
        for (const Item& file : script.files)
            if (file.path == path && inserted.empty()) inserted.push_back(file);
        if (inserted.empty()) return MEDIA_CONTENT_ERROR_NOT_FOUND;
        script.items.push_back(inserted[0]);
        return MEDIA_CONTENT_ERROR_NONE;
    });
    if (error == 0) *media = Seam::Keep(new media_info_s(inserted[0]));
    return error;
}

int media_info_delete_from_db(const char* media_id) {
    return Seam::Run(__func__, Needs::Media, [&](Script& script) {
        auto& items = script.items;
        const auto found = std::find_if(items.begin(), items.end(),
                                        [=](const Item& item) { return item.id == media_id; });
        if (found == items.end()) return MEDIA_CONTENT_ERROR_NOT_FOUND;
        items.erase(found);
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* user_data) {
    Filter used;
    if (const int error = EnterWith(__func__, filter, used)) return error;
    std::vector<Storage> present = Seam::Lock()->storages;
    const int listing = ++Seam::Lock()->storageListings;
    const auto later = [=](const Storage& storage) { return storage.fromListing > listing; };
    present.erase(std::remove_if(present.begin(), present.end(), later), present.end());
    Seam::ForEach<media_storage_s>(__func__, present, callback, user_data);
    return 0;
}

int media_storage_clone(media_storage_h* dst, media_storage_h src) {
    return Seam::Clone<media_storage_s>(__func__, dst, src);
}

int media_storage_destroy(media_storage_h storage) {
    return Seam::Destroy<media_storage_s>(__func__, storage);
}

FAKE_GETTER_OF(void, media_storage_s, media_storage_get_storage_id, char*, h.record.id)
FAKE_GETTER_OF(void, media_storage_s, media_storage_get_path, char*, h.record.path)

int media_storage_get_scan_status(const char* storage_id, media_storage_scan_status_e* status) {
    return Seam::Run(__func__, Needs::Media, [=](Script& script) {
        for (const Storage& storage : script.storages) {
            if (storage.id != storage_id) continue;
            *status = static_cast<media_storage_scan_status_e>(storage.scanStatus);
            return MEDIA_CONTENT_ERROR_NONE;
        }
        return MEDIA_CONTENT_ERROR_NOT_FOUND;
    });
}

// ---- records: media items, their metadata, and folders -----------------------------------------

int media_info_clone(media_info_h* dst, media_info_h src) {
    return Seam::Clone<media_info_s>(__func__, dst, src);
}
int media_info_destroy(media_info_h media) {
    return Seam::Destroy<media_info_s>(__func__, media);
}
FAKE_GETTER(media_info_s, media_info_get_media_id, char*, id)
FAKE_GETTER(media_info_s, media_info_get_file_path, char*, path)
FAKE_GETTER(media_info_s, media_info_get_display_name, char*, Name())
FAKE_GETTER(media_info_s, media_info_get_media_type, media_content_type_e, type)
FAKE_GETTER(media_info_s, media_info_get_size, unsigned long long, size)
FAKE_GETTER(media_info_s, media_info_get_added_time, time_t, added)
FAKE_GETTER(media_info_s, media_info_get_modified_time, time_t, modified)
FAKE_NOTHING(media_info_s, media_info_get_mime_type, char*)
FAKE_NOTHING(media_info_s, media_info_get_thumbnail_path, char*)
FAKE_NOTHING(media_info_s, media_info_get_description, char*)
FAKE_NOTHING(media_info_s, media_info_get_title, char*)
FAKE_NOTHING(media_info_s, media_info_get_rating, int)
FAKE_NOTHING(media_info_s, media_info_get_latitude, double)
FAKE_NOTHING(media_info_s, media_info_get_longitude, double)

int media_info_get_audio(media_info_h media, audio_meta_h* audio) {
    return Seam::Clone<media_info_s, audio_meta_s>(__func__, audio, media);
}
int media_info_get_image(media_info_h media, image_meta_h* image) {
    return Seam::Clone<media_info_s, image_meta_s>(__func__, image, media);
}
int media_info_get_video(media_info_h media, video_meta_h* video) {
    return Seam::Clone<media_info_s, video_meta_s>(__func__, video, media);
}

int audio_meta_destroy(audio_meta_h audio) {
    return Seam::Destroy<audio_meta_s>(__func__, audio);
}
FAKE_NOTHING(audio_meta_s, audio_meta_get_album, char*)
FAKE_NOTHING(audio_meta_s, audio_meta_get_artist, char*)
FAKE_NOTHING(audio_meta_s, audio_meta_get_genre, char*)
FAKE_NOTHING(audio_meta_s, audio_meta_get_composer, char*)
FAKE_NOTHING(audio_meta_s, audio_meta_get_copyright, char*)
FAKE_NOTHING(audio_meta_s, audio_meta_get_track_num, char*)
FAKE_NOTHING(audio_meta_s, audio_meta_get_bit_rate, int)
FAKE_NOTHING(audio_meta_s, audio_meta_get_duration, int)

int image_meta_destroy(image_meta_h image) {
    return Seam::Destroy<image_meta_s>(__func__, image);
}
FAKE_NOTHING(image_meta_s, image_meta_get_width, int)
FAKE_NOTHING(image_meta_s, image_meta_get_height, int)
FAKE_NOTHING(image_meta_s, image_meta_get_orientation, media_content_orientation_e)

int video_meta_destroy(video_meta_h video) {
    return Seam::Destroy<video_meta_s>(__func__, video);
}
FAKE_NOTHING(video_meta_s, video_meta_get_duration, int)
FAKE_NOTHING(video_meta_s, video_meta_get_width, int)
FAKE_NOTHING(video_meta_s, video_meta_get_height, int)
FAKE_NOTHING(video_meta_s, video_meta_get_album, char*)
FAKE_NOTHING(video_meta_s, video_meta_get_genre, char*)

int media_folder_clone(media_folder_h* dst, media_folder_h src) {
    return Seam::Clone<media_folder_s>(__func__, dst, src);
}
int media_folder_destroy(media_folder_h folder) {
    return Seam::Destroy<media_folder_s>(__func__, folder);
}
FAKE_GETTER(media_folder_s, media_folder_get_folder_id, char*, id)
FAKE_GETTER(media_folder_s, media_folder_get_path, char*, path)

}  // extern "C"

namespace fake {

void FakePlatform::FireDbUpdate(const DbUpdate& update) {
    const auto receivers = Lock()->dbReceivers;
    for (const auto& receiver : receivers) {
        DbUpdate own = update;  // the callback gets writable texts that end with the call
        const auto text = [](std::string& t) { return t.empty() ? nullptr : t.data(); };
        receiver.first(static_cast<media_content_error_e>(own.error), 4711,
                       static_cast<media_content_db_update_item_type_e>(own.item),
                       static_cast<media_content_db_update_type_e>(own.update),
                       static_cast<media_content_type_e>(own.media), nullptr, text(own.path),
                       text(own.mime), receiver.second);
    }
}

void FakePlatform::PostDbUpdate(const DbUpdate& update) {
    Seam::Post([this, update] { FireDbUpdate(update); });
}

}  // namespace fake
