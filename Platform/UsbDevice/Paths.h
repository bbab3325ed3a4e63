// Where a path lies.
#ifndef PLATFORM_USB_DEVICE_PATHS_H
#define PLATFORM_USB_DEVICE_PATHS_H

#include <string>

namespace platform {

// The folder itself is not. Both are absolute and without "." or "..".
inline bool IsStrictlyBelow(const std::string& path, const std::string& folder) {
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           (folder.back() == '/' || path[folder.size()] == '/');
}

}  // namespace platform

#endif
