// The C interface: connection, folder scans, updates; and the platform's own entry points.
#include "MediaContent.h"

#include "MediaContent/MediaService.h"
#include "MediaContent/Service.h"

using platform::Guarded;
using platform::Service;

int media_content_connect() {
    return Service::Get().Connect();
}

int media_content_disconnect() {
    return Service::Get().Disconnect();
}

int media_content_scan_folder(const char* path, bool is_recursive, media_scan_completed_cb callback,
                              void* user_data) {
    if (!path || !*path || !callback) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        return Service::Get().ScanFolder(path, is_recursive, callback, user_data);
    });
}

int media_content_set_db_updated_cb(media_content_db_updated_cb callback, void* user_data) {
    if (!callback) return MEDIA_CONTENT_ERROR_INVALID_PARAMETER;
    return Guarded(__func__, [&] {
        Service::Get().GetUpdates().AddReceiver(callback, user_data);
        return MEDIA_CONTENT_ERROR_NONE;
    });
}

namespace platform {

void ConfigureMediaService(const MediaServiceOptions& options) {
    Service::Get().Configure(options);
}

void StorageMounted(const MountedStorage& storage) {
    Service::Get().Mounted(storage);
}

void StorageUnmounted(const std::string& mountPath) {
    Service::Get().Unmounted(mountPath);
}

void StorageContentChanged(const std::string& mountPath, const std::vector<std::string>& paths) {
    Service::Get().Changed(mountPath, paths);
}

std::vector<ScanProgress> CurrentScans() {
    return Service::Get().Scans();
}

void ShutdownMediaService() {
    Service::Get().Shutdown();
}

}  // namespace platform
