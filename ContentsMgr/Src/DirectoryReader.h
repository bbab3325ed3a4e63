#ifndef CONTENTS_MGR_DIRECTORY_READER_H
#define CONTENTS_MGR_DIRECTORY_READER_H

#include <dirent.h>

#include <string>

namespace dorn {

// Iterates over the visible subfolders of one directory, in the file system's order. Only entries
// that the file system itself reports as directories count (no links, no entries without a type).
// One thread; the directory is closed on destruction.
class DirectoryReader {
public:
    // EndWithGaps: all entries were seen except those whose names exceed the buffer, which NTFS and
    // FAT allow. The C library skips such an entry and reports it at the end.
    enum class Step { Subfolder, End, EndWithGaps, Error };

    explicit DirectoryReader(const std::string& path);
    ~DirectoryReader();
    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    bool IsOpen() const { return m_directory != nullptr; }

    // Advances to the next subfolder.
    Step Next();

    // The name of the subfolder found by Next.
    const char* Name() const { return m_entry.d_name; }

    // False when closing fails, or when nothing was open.
    bool Close();

private:
    DIR* m_directory;
    dirent m_entry{};  // one buffer for every entry
};

}  // namespace dorn

#endif
