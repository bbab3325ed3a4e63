#include "UsbDevice/MountTable.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <tuple>

namespace platform {
namespace {

bool IsOctal(char c) {
    return c >= '0' && c <= '7';
}

// The table writes blanks, tabs, newlines and backslashes as \NNN.
std::string Unescape(const std::string& text) {
    std::string plain;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool escape = text[at] == '\\' && at + 3 < text.size() && IsOctal(text[at + 1]) &&
                            IsOctal(text[at + 2]) && IsOctal(text[at + 3]);
        if (!escape) {
            plain.push_back(text[at]);
            continue;
        }
        plain.push_back(static_cast<char>((text[at + 1] - '0') * 64 + (text[at + 2] - '0') * 8 +
                                          (text[at + 3] - '0')));
        at += 3;
    }
    return plain;
}

// id parent major:minor root mount-point options [tags...] - type source super-options
bool ParseLine(const std::string& line, MountLine& mount) {
    std::istringstream fields(line);
    std::string parent, device, options, tag;
    fields >> mount.id >> parent >> device >> mount.root >> mount.mountPoint >> options;
    while (fields >> tag && tag != "-") continue;
    fields >> mount.type >> mount.source;
    if (mount.type.empty() || std::sscanf(device.c_str(), "%u:%u", &mount.major, &mount.minor) != 2)
        return false;
    mount.root = Unescape(mount.root);
    mount.mountPoint = Unescape(mount.mountPoint);
    mount.source = Unescape(mount.source);
    return true;
}

auto Fields(const MountLine& m) {
    return std::tie(m.id, m.major, m.minor, m.root, m.mountPoint, m.type, m.source);
}

}  // namespace

bool MountLine::operator==(const MountLine& other) const {
    return Fields(*this) == Fields(other);
}

std::vector<MountLine> ParseMountTable(const std::string& text) {
    std::vector<MountLine> mounts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        MountLine mount;
        if (ParseLine(line, mount)) mounts.push_back(std::move(mount));
    }
    return mounts;
}

bool MountTable::Open() {
    m_polled = UniqueFd(open(m_path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!m_polled) return false;
    Reload();
    return true;
}

bool MountTable::Reload() {
    std::ifstream file(m_path);
    // Short of descriptors: this does not mean that anything was unmounted. A change, if any, is
    // still unread.
    if (!file && (errno == EMFILE || errno == ENFILE)) return true;
    std::ostringstream text;
    text << file.rdbuf();
    std::vector<MountLine> mounts = ParseMountTable(text.str());
    if (mounts == m_mounts) return false;
    m_mounts = std::move(mounts);
    return true;
}

}  // namespace platform
