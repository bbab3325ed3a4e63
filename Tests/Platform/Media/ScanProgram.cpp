// Scans one stick into one database and ends: what the kill test kills.
//   media_scan_program DATABASE STICK UUID
#include <chrono>
#include <thread>

#include "MediaContent.h"
#include "MediaContent/MediaService.h"

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    platform::ConfigureMediaService({argv[1], "/nonexistent/extractor"});
    if (media_content_connect() != 0) return 3;
    platform::MountedStorage storage;
    storage.mountPath = argv[2];
    storage.uuid = argv[3];
    platform::StorageMounted(storage);
    platform::StorageContentChanged(storage.mountPath, {});
    while (!platform::CurrentScans().empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    media_content_disconnect();
    platform::ShutdownMediaService();
    return 0;
}
