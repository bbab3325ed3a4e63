// Exiv2's access to a file.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_EXIV_IO_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_EXIV_IO_H

#include <sys/mman.h>

#include <exiv2/exiv2.hpp>
#include <string>

#include "MediaContent/Extract/FileSource.h"

namespace platform {

// Lets Exiv2 read a source. It is read-only: operations that would write do nothing and fail.
class ExivIo : public Exiv2::BasicIo {
public:
    explicit ExivIo(FileSource& source) : m_source(source), m_cursor(source) {}
    ~ExivIo() override { Unmap(); }

    int open() override {
        m_open = true;
        m_atEnd = false;
        m_cursor.Seek(0, SourceCursor::From::Start);
        return 0;
    }
    int close() override {
        m_open = false;
        return munmap();
    }
    long write(const Exiv2::byte*, long) override { return 0; }
    long write(Exiv2::BasicIo&) override { return 0; }
    int putb(Exiv2::byte) override { return EOF; }
    void transfer(Exiv2::BasicIo&) override {}

    Exiv2::DataBuf read(long count) override {
        if (count < 0 || static_cast<uint64_t>(count) > m_source.Size())
            throw Exiv2::Error(Exiv2::kerInvalidMalloc);
        Exiv2::DataBuf data(count);
        data.size_ = read(data.pData_, count);
        return data;
    }
    long read(Exiv2::byte* buffer, long count) override {
        if (count <= 0) return 0;
        const size_t got = m_cursor.Read(buffer, static_cast<size_t>(count));
        if (got < static_cast<size_t>(count)) m_atEnd = true;
        return static_cast<long>(got);
    }
    int getb() override {
        Exiv2::byte one = 0;
        return read(&one, 1) == 1 ? one : EOF;
    }
    int seek(long offset, Position from) override {
        const SourceCursor::From base = from == beg   ? SourceCursor::From::Start
                                        : from == cur ? SourceCursor::From::Here
                                                      : SourceCursor::From::End;
        if (!m_cursor.Seek(offset, base)) return 1;
        m_atEnd = false;
        return 0;
    }

    Exiv2::byte* mmap(bool) override {
        if (m_mapped) return m_mapped;
        void* place = ::mmap(nullptr, m_source.Size(), PROT_READ, MAP_PRIVATE, m_source.Fd(), 0);
        if (place == MAP_FAILED) throw Exiv2::Error(Exiv2::kerCallFailed, path(), "", "mmap");
        m_mapped = static_cast<Exiv2::byte*>(place);
        return m_mapped;
    }
    int munmap() override {
        Unmap();
        return 0;
    }

    long tell() const override { return static_cast<long>(m_cursor.Tell()); }
    size_t size() const override { return m_source.Size(); }
    bool isopen() const override { return m_open; }
    int error() const override { return 0; }
    bool eof() const override { return m_atEnd; }
    std::string path() const override { return "file"; }

private:
    void Unmap() {
        if (m_mapped) ::munmap(m_mapped, m_source.Size());
        m_mapped = nullptr;
    }

    FileSource& m_source;
    SourceCursor m_cursor;
    bool m_open = false;
    bool m_atEnd = false;
    Exiv2::byte* m_mapped = nullptr;
};

}  // namespace platform

#endif
