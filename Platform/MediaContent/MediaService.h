// The media database service, as seen by the rest of the platform layer: its configuration, the
// storages that come and go, and the progress of its scans. The plugin uses MediaContent.h instead.
#ifndef PLATFORM_MEDIA_CONTENT_MEDIA_SERVICE_H
#define PLATFORM_MEDIA_CONTENT_MEDIA_SERVICE_H

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct MediaServiceOptions {
    std::string databaseFile;   // created, with its folder, when missing
    std::string extractorPath;  // the metadata helper program; empty: next to the running program
};

// Must be called before the first media_content_connect of the process.
void ConfigureMediaService(const MediaServiceOptions& options);

// What is known of a storage whose file system has just been mounted.
struct MountedStorage {
    std::string uuid;       // of the file system; may be empty
    std::string serial;     // of the device; may be empty
    int partition = 0;      // together with the serial, replaces a missing uuid
    std::string label;      // of the partition, the file system's own bytes
    std::string mountPath;  // absolute
};

// Called by the USB service. When StorageMounted returns, the storage's record is in the database
// (if the service is connected; otherwise it is written, and the storage scanned, at the next
// connection). The scan starts with StorageContentChanged, once the receivers of device changes
// have been told of the storage. StorageUnmounted hides the storage and cancels its scan; it
// returns once no file of the storage is held open. Mounting the same path again replaces what was
// known of it. Thread-safe.
void StorageMounted(const MountedStorage& storage);
void StorageUnmounted(const std::string& mountPath);

// Something below a mounted storage's root has changed: check these paths again, soon and in a
// batch. A path may be a file or a folder, present or gone. An empty list means "anything": the
// whole storage is scanned.
void StorageContentChanged(const std::string& mountPath, const std::vector<std::string>& paths);

struct ScanProgress {
    std::string storageId;
    std::string mountPath;
    uint64_t filesSeen = 0;  // media files found by the walk so far
    uint64_t filesRead = 0;  // how many of these were opened for their metadata
    bool walking = false;    // the walk is not finished: filesSeen is not final
};
// The scans that are running or queued now. Thread-safe.
std::vector<ScanProgress> CurrentScans();

// Cancels running work, closes the database and joins the service's threads. Called when the
// process ends.
void ShutdownMediaService();

}  // namespace platform

#endif
