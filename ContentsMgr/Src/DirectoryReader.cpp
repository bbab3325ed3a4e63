#include "DirectoryReader.h"

#include <cerrno>
#include <utility>

namespace dorn {
namespace {

bool IsVisibleFolder(const dirent& entry) {
    return entry.d_name[0] != '.' && entry.d_type == DT_DIR;
}

// Reads into the caller's buffer; never touches entries of other readers in the process.
int ReadEntry(DIR* directory, dirent* buffer, dirent** result) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    return readdir_r(directory, buffer, result);
#pragma GCC diagnostic pop
}

}  // namespace

DirectoryReader::DirectoryReader(const std::string& path) : m_directory(opendir(path.c_str())) {}

DirectoryReader::~DirectoryReader() {
    Close();
}

DirectoryReader::Step DirectoryReader::Next() {
    for (;;) {
        dirent* found = nullptr;
        const int error = ReadEntry(m_directory, &m_entry, &found);
        if (error != 0 && error != ENAMETOOLONG) return Step::Error;
        if (!found) return error == 0 ? Step::End : Step::EndWithGaps;
        if (IsVisibleFolder(m_entry)) return Step::Subfolder;
    }
}

bool DirectoryReader::Close() {
    DIR* directory = std::exchange(m_directory, nullptr);
    return directory && closedir(directory) == 0;
}

}  // namespace dorn
