// Reading a storage's folders without ever leaving it.
#ifndef PLATFORM_MEDIA_CONTENT_WALK_H
#define PLATFORM_MEDIA_CONTENT_WALK_H

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Process/UniqueFd.h"

namespace platform {

// Opens `path`, relative to the folder open at `root` ("" for that folder itself), with `flags` as
// for open. No component of the path may be a symbolic link or lie on another file system. Returns
// an empty descriptor with errno set on failure.
UniqueFd OpenBelow(int root, const std::string& path, int flags);

// True when the errno of a failed OpenBelow means "does not exist in this storage" rather than
// "cannot be checked now".
bool MeansGone(int error);

struct FolderEntry {
    std::string name;
    uint64_t inode;
};

struct FolderContent {
    std::vector<FolderEntry> files;  // everything that may be a regular file, in inode order
    std::vector<FolderEntry> folders;
    bool empty = true;     // not even a hidden entry
    bool noMedia = false;  // holds a file named .nomedia
};

// Reads the folder open at `folder`. Returns 0 or an errno.
int ReadFolder(const UniqueFd& folder, FolderContent& content);

inline bool IsHidden(const std::string& name) {
    return name.empty() || name[0] == '.';
}

// True when scans skip `path` (a folder below the one open at `root`): a component of it is hidden,
// or a folder along it, including the last, contains .nomedia.
bool IsExcluded(int root, const std::string& path);

}  // namespace platform

#endif
