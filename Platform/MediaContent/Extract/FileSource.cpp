#include "MediaContent/Extract/FileSource.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "MediaContent/Extract/Protocol.h"

namespace platform {
FileSource::FileSource(int fd, uint64_t size)
    : m_fd(fd),
      m_size(std::min<uint64_t>(size, INT64_MAX)),
      m_window(static_cast<size_t>(std::min<uint64_t>(m_size, kReadWindow))) {
    if (m_size <= kReadWindow) return;
    // Without this the kernel reads ahead far more than is used: from a slow stick, that is most of
    // the time that a file takes.
    posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
}

size_t FileSource::ReadThrough(uint64_t offset, unsigned char* buffer, size_t length) const {
    size_t done = 0;
    while (done < length) {
        const ssize_t got =
            pread(m_fd, buffer + done, length - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

size_t FileSource::CopyFromWindow(uint64_t offset, unsigned char* buffer, size_t length) const {
    if (offset < m_windowStart || offset >= m_windowStart + m_windowLength) return 0;
    const size_t inside = static_cast<size_t>(offset - m_windowStart);
    const size_t count = std::min(length, m_windowLength - inside);
    std::memcpy(buffer, m_window.data() + inside, count);
    return count;
}

void FileSource::FillWindow(uint64_t offset) {
    m_windowStart = offset;
    const uint64_t wanted = std::min<uint64_t>(kReadWindow, m_size - offset);
    m_windowLength = ReadThrough(offset, m_window.data(), static_cast<size_t>(wanted));
}

size_t FileSource::ReadAt(uint64_t offset, void* buffer, size_t length) {
    if (length == 0 || offset >= m_size) return 0;
    length = static_cast<size_t>(std::min<uint64_t>(length, m_size - offset));
    auto* out = static_cast<unsigned char*>(buffer);
    size_t done = CopyFromWindow(offset, out, length);
    if (done == length) return done;
    if (length - done >= kReadWindow)
        return done + ReadThrough(offset + done, out + done, length - done);
    FillWindow(offset + done);
    return done + CopyFromWindow(offset + done, out + done, length - done);
}

bool SourceCursor::Seek(int64_t offset, From from) {
    uint64_t base = 0;
    if (from == From::Here) base = m_position;
    if (from == From::End) base = m_source.Size();
    int64_t target = 0;
    if (__builtin_add_overflow(static_cast<int64_t>(base), offset, &target) || target < 0)
        return false;
    m_position = static_cast<uint64_t>(target);
    return true;
}

size_t SourceCursor::Read(void* buffer, size_t length) {
    const size_t got = m_source.ReadAt(m_position, buffer, length);
    m_position += got;
    return got;
}

}  // namespace platform
