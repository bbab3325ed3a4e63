// What the service knows of one storage while it is mounted.
#ifndef PLATFORM_MEDIA_CONTENT_MOUNT_H
#define PLATFORM_MEDIA_CONTENT_MOUNT_H

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "MediaContent.h"

namespace platform {

// One storage from its mount to its unmount.
struct Mount {
    std::string path;                // as it was told, without a slash at the end
    std::string realPath;            // the same without links
    std::string identity;            // what it is known by
    struct stat root {};             // what was there when it came; all 0 when nothing was
    std::string id;                  // as clients see it
    std::string name;                // for the log
    bool isNews = true;              // for the log: it was not there when somebody last looked
    std::atomic<int64_t> number{0};  // in the database that is open; 0 while none is
    std::atomic<bool> gone{false};   // unmounted: nothing of it may be opened any more
    std::atomic<int> scanStatus{MEDIA_STORAGE_SCAN_STOPPED};
    std::atomic<bool> hasPassedOver{false};  // files that were: see ItemState
};

using MountPtr = std::shared_ptr<Mount>;

}  // namespace platform

#endif
