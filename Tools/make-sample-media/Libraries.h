// The libraries that the tool creates. Each function creates `root` if missing and throws a
// std::exception when it fails. The same call produces the same files, byte for byte and with the
// same modification times.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_LIBRARIES_H
#define TOOLS_MAKE_SAMPLE_MEDIA_LIBRARIES_H

#include <string>

namespace samples {

// At least one file of every format, with tags, positions and every orientation; also odd names,
// hidden entries and broken files. Takes some seconds, a few megabytes. Returns how many files
// could not be created because an encoder is missing.
int MakeSmallLibrary(const std::string& root);

// `count` photos with EXIF in the folder and three subfolders, and one broken photo ("broken.jpg").
// Under a second for hundreds.
void MakePhotos(const std::string& root, unsigned count);

// `count` photos, songs and films in folders of a hundred, by copying and re-tagging: about 100,000
// in half a minute or less, 1 to 20 KB each.
void MakeLargeLibrary(const std::string& root, unsigned count);

// The same with the metadata that cameras and players write: forty tags, a maker note and a
// thumbnail in a photo, a cover in a song; 35 to 65 KB each.
void MakeCameraLibrary(const std::string& root, unsigned count);

// Files meant to break a reader or a walk, mixed with a few good ones ("good-*"): cut at every
// length of their headers, random bytes under every extension, a sparse file of 10 GB, a FIFO, a
// device node (as root), link loops, names up to the length limit.
void MakeHostileLibrary(const std::string& root);

// `count` copies of the small library's files, each damaged in one of a few ways: bytes changed,
// file truncated, a block duplicated or overwritten.
void MakeDamagedLibrary(const std::string& root, unsigned count);

// Shared by SMALL and HOSTILE: names that are difficult for programs, each a copy of `file`, with
// its extension. Names that the file system rejects are skipped.
void MakeOddNames(const std::string& folder, const std::string& file);

}  // namespace samples

#endif
