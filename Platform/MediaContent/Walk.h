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
// open takes them. No part of the path may be a symbolic link or lie on another file system.
// None with errno on failure.
UniqueFd OpenBelow(int root, const std::string& path, int flags);

// The errno of an OpenBelow that means "there is no such thing in this storage", as against one
// that could not be looked at now.
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

// True when a scan does not look at `path` (a folder below the one open at `root`): a part of it is
// hidden, or a folder on the way, the last included, holds .nomedia.
bool IsExcluded(int root, const std::string& path);

}  // namespace platform

#endif
