#ifndef CONTENTS_MGR_DIRECTORY_READER_H
#define CONTENTS_MGR_DIRECTORY_READER_H

#include <dirent.h>

#include <string>

namespace dorn {

// Walks the visible subfolders of one directory, in the order in which the file system yields
// them. What the file system does not itself call a directory (links, entries without type) is
// none. One thread; the directory is closed with the object.
class DirectoryReader {
public:
    // EndWithGaps: all has been seen but entries whose names are too long for the buffer, as those
    // of NTFS and FAT may be. The C library leaves such an entry out and says so at the end.
    enum class Step { Subfolder, End, EndWithGaps, Error };

    explicit DirectoryReader(const std::string& path);
    ~DirectoryReader();
    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    bool IsOpen() const { return m_directory != nullptr; }

    // Goes on to the next subfolder.
    Step Next();

    // The name of the subfolder that Next has found.
    const char* Name() const { return m_entry.d_name; }

    // False when closing fails, or when nothing was open.
    bool Close();

private:
    DIR* m_directory;
    dirent m_entry{};  // one buffer for every entry
};

}  // namespace dorn

#endif
