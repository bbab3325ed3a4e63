// The kernel's mount table of this process's namespace.
#ifndef PLATFORM_USB_DEVICE_MOUNT_TABLE_H
#define PLATFORM_USB_DEVICE_MOUNT_TABLE_H

#include <string>
#include <vector>

#include "Process/UniqueFd.h"

namespace platform {

// One line of the table, with octal escapes decoded.
struct MountLine {
    int id = 0;  // the kernel reuses the ids of ended mounts
    unsigned major = 0;
    unsigned minor = 0;
    std::string root;  // the mounted subtree of the file system, "/" for all of it
    std::string mountPoint;
    std::string type;
    std::string source;

    bool operator==(const MountLine& other) const;
};

// Lines that do not describe a mount are skipped.
std::vector<MountLine> ParseMountTable(const std::string& text);

// Used by one thread at a time.
class MountTable {
public:
    explicit MountTable(std::string path) : m_path(std::move(path)) {}

    // Opens the table for polling and reads it; false when it cannot be opened.
    bool Open();

    // Poll it for POLLPRI.
    int Get() const { return m_polled.Get(); }

    // Rereads the table. True when it has changed.
    bool Reload();

    const std::vector<MountLine>& Mounts() const { return m_mounts; }

private:
    const std::string m_path;
    UniqueFd m_polled;
    std::vector<MountLine> m_mounts;
};

}  // namespace platform

#endif
