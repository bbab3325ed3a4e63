// Folders and files of a sample library. Names are bytes. On failure every operation throws
// std::runtime_error with the path and the reason.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_FILES_H
#define TOOLS_MAKE_SAMPLE_MEDIA_FILES_H

#include <cstdint>
#include <string>
#include <string_view>

namespace samples {

void MakeFolders(const std::string& path);  // including parents
void WriteFile(const std::string& path, std::string_view bytes);
std::string ReadFile(const std::string& path);
void RemoveTree(const std::string& path);  // may be missing

// Each file gets its own time, the same in every run: `index` minutes after a fixed moment.
void SetTime(const std::string& path, uint64_t index);

// The same bytes for the same seed, on every platform.
std::string RandomBytes(uint32_t seed, size_t length);

}  // namespace samples

#endif
