// An open file, read by position: the only access that readers have to a file's bytes.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_FILE_SOURCE_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_FILE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// Reads a descriptor that it does not own, through one window of the file, so that the parsers'
// many small reads need no system call each. The descriptor's own offset is not used. One thread at
// a time.
class FileSource {
public:
    // `size` is where the file ends for the readers, even if the file changes meanwhile.
    FileSource(int fd, uint64_t size);
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    int Fd() const { return m_fd; }
    uint64_t Size() const { return m_size; }

    // Copies up to `length` bytes from `offset`. Returns the number copied, which is smaller at the
    // end of the file or when the file cannot be read (any more).
    size_t ReadAt(uint64_t offset, void* buffer, size_t length);

private:
    size_t ReadThrough(uint64_t offset, unsigned char* buffer, size_t length) const;
    size_t CopyFromWindow(uint64_t offset, unsigned char* buffer, size_t length) const;
    void FillWindow(uint64_t offset);

    const int m_fd;
    const uint64_t m_size;
    std::vector<unsigned char> m_window;
    uint64_t m_windowStart = 0;
    size_t m_windowLength = 0;
};

// A position in a source, moved like fseek; the basis of both libraries' streams.
class SourceCursor {
public:
    enum class From { Start, Here, End };

    explicit SourceCursor(FileSource& source) : m_source(source) {}

    uint64_t Tell() const { return m_position; }
    bool AtEnd() const { return m_position >= m_source.Size(); }
    // False, without moving, for a position before the start. A position beyond the end is allowed.
    bool Seek(int64_t offset, From from);
    // Reads at the position and advances it by the bytes read.
    size_t Read(void* buffer, size_t length);

private:
    FileSource& m_source;
    uint64_t m_position = 0;
};

}  // namespace platform

#endif
