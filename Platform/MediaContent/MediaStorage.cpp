// The C interface: storages.
#include <algorithm>

#include "MediaContent/Handles.h"
#include "MediaContent/Service.h"

using platform::Service;
using platform::Session;
using platform::StorageRecord;
using platform::StorageRecordPtr;
using platform::WithDatabase;

namespace {

StorageRecord* RecordOf(media_storage_h storage) {
    return static_cast<StorageRecord*>(storage);
}

std::vector<StorageRecordPtr> PresentStorages(const media_filter_s* filter) {
    std::vector<StorageRecordPtr> records;
    size_t skip = filter ? static_cast<size_t>(filter->offset) : 0;
    const size_t limit =
        filter && filter->count >= 0 ? static_cast<size_t>(filter->count) : SIZE_MAX;
    std::map<int64_t, std::shared_ptr<platform::Mount>> byNumber;  // in the order of first sight
    for (const auto& mount : Service::Get().GetStorages().All())
        if (mount->number != 0) byNumber[mount->number] = mount;
    for (const auto& [number, mount] : byNumber) {
        if (skip > 0) {
            --skip;
            continue;
        }
        if (records.size() >= limit) break;
        StorageRecordPtr record(new StorageRecord);
        record->id = mount->id;
        record->path = mount->path;
        records.push_back(std::move(record));
    }
    return records;
}

}  // namespace

int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* user_data) {
    if (!callback) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session&) {
        for (const StorageRecordPtr& record : PresentStorages(filter))
            if (!callback(record.get(), user_data)) break;
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_storage_clone(media_storage_h* dst, media_storage_h src) {
    if (!dst || !src) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    intrusive_ptr_add_ref(RecordOf(src));
    *dst = src;
    return MEDIA_CONTENT_ERROR_NONE;
}

int media_storage_destroy(media_storage_h storage) {
    return platform::DestroyHandle(RecordOf(storage));
}

int media_storage_get_storage_id(media_storage_h storage, char** storage_id) {
    if (!storage || !storage_id) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return platform::GiveText(RecordOf(storage)->id, storage_id);
}

int media_storage_get_path(media_storage_h storage, char** path) {
    if (!storage || !path) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return platform::GiveText(RecordOf(storage)->path, path);
}

int media_storage_get_scan_status(const char* storage_id, media_storage_scan_status_e* status) {
    if (!storage_id || !status) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session&) {
        const auto mount = Service::Get().GetStorages().Find(storage_id);
        if (!mount) return MEDIA_CONTENT_ERROR_NOT_FOUND;
        *status = static_cast<media_storage_scan_status_e>(mount->scanStatus.load());
        return MEDIA_CONTENT_ERROR_NONE;
    });
}
