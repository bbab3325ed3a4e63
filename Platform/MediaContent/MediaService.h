// The media database service, as the rest of the platform layer sees it: its set-up, the storages
// that come and go, and the progress of its scans. What the plugin sees is MediaContent.h.
#ifndef PLATFORM_MEDIA_CONTENT_MEDIA_SERVICE_H
#define PLATFORM_MEDIA_CONTENT_MEDIA_SERVICE_H

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct MediaServiceOptions {
    std::string databaseFile;   // created with its folder when missing
    std::string extractorPath;  // the metadata helper program; empty: beside the running program
};

// Before the first media_content_connect of the process.
void ConfigureMediaService(const MediaServiceOptions& options);

// What is known of a storage whose file system has just been mounted.
struct MountedStorage {
    std::string uuid;       // of the file system; may be empty
    std::string serial;     // of the device; may be empty
    int partition = 0;      // with the serial stands in for a missing uuid
    std::string label;      // of the partition, the file system's own bytes
    std::string mountPath;  // absolute
};

// Told by the USB service. When StorageMounted returns, the storage's record is in the database
// (while the service is connected; otherwise at the next connection, which scans it too). Its scan
// starts with StorageContentChanged, once it has been told to the receivers of device changes.
// StorageUnmounted hides the storage and cancels its scan; it returns when no file of it is held
// open any more. Mounting the same path again replaces what was known of it. Any thread.
void StorageMounted(const MountedStorage& storage);
void StorageUnmounted(const std::string& mountPath);

// Something below a mounted storage's root has changed: look at these again, soon and in a batch.
// A path may be a file or a folder, present or gone. An empty list means
// "anything": the whole storage is scanned.
void StorageContentChanged(const std::string& mountPath, const std::vector<std::string>& paths);

struct ScanProgress {
    std::string storageId;
    std::string mountPath;
    uint64_t filesSeen = 0;  // media files walked over so far
    uint64_t filesRead = 0;  // of these, opened for their metadata
    bool walking = false;    // the walk is still going on: filesSeen is no total yet
};
// The scans that run or are queued now. Any thread.
std::vector<ScanProgress> CurrentScans();

// Cancels what runs, closes the database and joins the service's threads. At the process's end.
void ShutdownMediaService();

}  // namespace platform

#endif
