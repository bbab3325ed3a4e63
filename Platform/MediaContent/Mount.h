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

// One storage from mount to unmount.
struct Mount {
    std::string path;                // as passed in, without a trailing slash
    std::string realPath;            // the same with links resolved
    std::string identity;            // what the storage is recognised by
    struct stat root {};             // the root at mount time; all 0 when there was none
    std::string id;                  // as clients see it
    std::string name;                // for the log
    bool isNews = true;              // for the log: the storage was not there before
    std::atomic<int64_t> number{0};  // row in the open database; 0 while none is open
    std::atomic<bool> gone{false};   // unmounted: none of its files may be opened any more
    std::atomic<int> scanStatus{MEDIA_STORAGE_SCAN_STOPPED};
    std::atomic<bool> hasPassedOver{false};  // has such files: see ItemState
};

using MountPtr = std::shared_ptr<Mount>;

}  // namespace platform

#endif
