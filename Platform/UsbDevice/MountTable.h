// The kernel's mount table of this process's namespace.
#ifndef PLATFORM_USB_DEVICE_MOUNT_TABLE_H
#define PLATFORM_USB_DEVICE_MOUNT_TABLE_H

#include <string>
#include <vector>

#include "Process/UniqueFd.h"

namespace platform {

// One line of the table, octal escapes undone.
struct MountLine {
    int id = 0;  // the kernel gives ids of ended mounts to later ones
    unsigned major = 0;
    unsigned minor = 0;
    std::string root;  // what of the file system is mounted, "/" for all of it
    std::string mountPoint;
    std::string type;
    std::string source;

    bool operator==(const MountLine& other) const;
};

// Lines that are no mounts are left out.
std::vector<MountLine> ParseMountTable(const std::string& text);

// Belongs to one thread at a time.
class MountTable {
public:
    explicit MountTable(std::string path) : m_path(std::move(path)) {}

    // Opens the table for polling and reads it; false when there is none.
    bool Open();

    // To be polled for POLLPRI.
    int Get() const { return m_polled.Get(); }

    // Reads the table again. True when it differs from what was known.
    bool Reload();

    const std::vector<MountLine>& Mounts() const { return m_mounts; }

private:
    const std::string m_path;
    UniqueFd m_polled;
    std::vector<MountLine> m_mounts;
};

}  // namespace platform

#endif
