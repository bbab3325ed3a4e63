// Numbers and marks at fixed places of a file.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_HEADER_BYTES_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_HEADER_BYTES_H

#include <array>
#include <cstdint>
#include <string_view>

#include "MediaContent/Extract/FileSource.h"

namespace platform {

// A few bytes of the file; those beyond its end are 0.
template <size_t Count>
class HeaderBytes {
public:
    HeaderBytes(FileSource& source, uint64_t offset) {
        m_got = source.ReadAt(offset, m_bytes.data(), Count);
    }
    bool AreThere() const { return m_got == Count; }
    uint32_t operator[](size_t at) const { return m_bytes[at]; }
    uint32_t Little16(size_t at) const { return m_bytes[at] | m_bytes[at + 1] << 8; }
    uint32_t Little32(size_t at) const { return Little16(at) | Little16(at + 2) << 16; }
    uint32_t Big16(size_t at) const { return m_bytes[at] << 8 | m_bytes[at + 1]; }
    uint32_t Big32(size_t at) const { return Big16(at) << 16 | Big16(at + 2); }
    std::string_view Text(size_t at, size_t length) const {
        return {reinterpret_cast<const char*>(m_bytes.data()) + at, length};
    }
    bool Start(std::string_view mark) const { return Text(0, mark.size()) == mark; }

private:
    std::array<uint8_t, Count> m_bytes{};
    size_t m_got = 0;
};

}  // namespace platform

#endif
