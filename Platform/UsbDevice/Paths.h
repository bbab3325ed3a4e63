// How paths relate to each other.
#ifndef PLATFORM_USB_DEVICE_PATHS_H
#define PLATFORM_USB_DEVICE_PATHS_H

#include <string>

namespace platform {

// False for the folder itself. Both paths are absolute and without "." or "..".
inline bool IsStrictlyBelow(const std::string& path, const std::string& folder) {
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           (folder.back() == '/' || path[folder.size()] == '/');
}

}  // namespace platform

#endif
