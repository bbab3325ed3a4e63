// The C interface: folders.
#include <limits.h>

#include <algorithm>

#include "MediaContent/Handles.h"
#include "MediaContent/Reader.h"
#include "MediaContent/Service.h"

using platform::FolderRecord;
using platform::MediaRecord;
using platform::Reader;
using platform::Scope;
using platform::Service;
using platform::Session;
using platform::WithDatabase;

namespace {

// Returns the folder's number and reduces the scope to its storage; 0 when the folder is unknown,
// or its storage is absent or not the filter's.
int64_t FindFolder(Session& session, const char* folderId, media_filter_h filter, Scope& scope) {
    const int64_t folder = session.store.FolderNumber(folderId);
    if (folder == 0) return 0;
    const Scope present = Service::Get().GetStorages().ScopeOf(filter);
    const auto storage = present.find(Reader(session.store).StorageOfFolder(folder));
    if (storage == present.end()) return 0;
    scope.insert(*storage);
    return folder;
}

}  // namespace

int media_folder_foreach_folder_from_db(media_filter_h filter, media_folder_cb callback,
                                        void* user_data) {
    if (!callback) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session& session) {
        for (const FolderRecord& folder :
             Reader(session.store)
                 .ListFolders(Service::Get().GetStorages().ScopeOf(filter), filter))
            if (!callback(folder.get(), user_data)) break;
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_folder_get_media_count_from_db(const char* folder_id, media_filter_h filter, int* count) {
    if (!folder_id || !count) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session& session) {
        Scope scope;
        const int64_t folder = FindFolder(session, folder_id, filter, scope);
        const int64_t items =
            folder == 0 ? 0 : Reader(session.store).CountFolderItems(scope, folder, filter);
        *count = static_cast<int>(std::min<int64_t>(items, INT_MAX));
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_folder_foreach_media_from_db(const char* folder_id, media_filter_h filter,
                                       media_info_cb callback, void* user_data) {
    if (!folder_id || !callback) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return WithDatabase(__func__, [&](Session& session) {
        Scope scope;
        const int64_t folder = FindFolder(session, folder_id, filter, scope);
        if (folder != 0)
            Reader(session.store).ListItems(scope, folder, filter, [&](const MediaRecord& record) {
                return callback(record.get(), user_data);
            });
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

int media_folder_clone(media_folder_h* dst, media_folder_h src) {
    return platform::CloneHandle(dst, src);
}

int media_folder_destroy(media_folder_h folder) {
    return platform::DestroyHandle(folder);
}

int media_folder_get_folder_id(media_folder_h folder, char** folder_id) {
    if (!folder || !folder_id) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return platform::GiveText(folder->id, folder_id);
}

int media_folder_get_path(media_folder_h folder, char** path) {
    if (!folder || !path) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return platform::GiveText(folder->path, path);
}
