// The libraries that the tool makes. Each function makes `root` when it is missing and throws a
// std::exception when it cannot go on. The same call makes the same files, byte for byte and with
// the same modification times.
#ifndef TOOLS_MAKE_SAMPLE_MEDIA_LIBRARIES_H
#define TOOLS_MAKE_SAMPLE_MEDIA_LIBRARIES_H

#include <string>

namespace samples {

// One or more of every format, with tags, positions and every orientation; odd names, hidden
// things and broken files beside them. Some seconds, a few megabytes. Returns how many files could
// not be made because an encoder is missing.
int MakeSmallLibrary(const std::string& root);

// `count` photos with EXIF in the folder and three below it, and one broken one ("broken.jpg")
// besides. Under a second for hundreds.
void MakePhotos(const std::string& root, unsigned count);

// `count` photos, songs and films in folders of a hundred, by copying and re-tagging: about
// 100,000 in half a minute or less, 1 to 20 KB each.
void MakeLargeLibrary(const std::string& root, unsigned count);

// The same with what cameras and players put into their files: forty tags, a note of the maker's
// and a thumbnail in a photo, a cover in a song; 35 to 65 KB each.
void MakeCameraLibrary(const std::string& root, unsigned count);

// Files to break a reader or a walk on, with a few good ones ("good-*") between: cut at every
// length of their headers, random bytes under every extension, a sparse file of 10 GB, a FIFO, a
// device node (as root), loops of links, names up to the limit.
void MakeHostileLibrary(const std::string& root);

// `count` copies of the small library's files, each damaged in one of a few ways: bytes changed,
// cut short, a piece doubled or blanked.
void MakeDamagedLibrary(const std::string& root, unsigned count);

// What SMALL and HOSTILE share: names that are hard on programs, each a copy of `file`, with its
// extension. What a file system does not take is left out.
void MakeOddNames(const std::string& folder, const std::string& file);

}  // namespace samples

#endif
