// The sizes of pictures, from their headers: where Exiv2 knows the format not at all or wrongly.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_PICTURE_SIZE_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_PICTURE_SIZE_H

#include <cstdint>
#include <optional>

#include "MediaContent/Extract/FileSource.h"

namespace platform {

// In pixels, before orientation. A side may be 0 or larger than any picture's: the caller checks.
struct PictureSize {
    uint64_t width = 0;
    uint64_t height = 0;
    int32_t orientation = 0;  // EXIF's, if the header has it (JPEG XL); else 0
};

// Goes by the content: BMP, GIF, ICO, JPEG, JPEG 2000, JPEG XL, the HEIF family, PCX, PNM, QOI and
// RAF. Nothing for other formats. A few reads, mostly at the start of the file. Thread-safe.
std::optional<PictureSize> ReadPictureSize(FileSource& source);

// Of a TGA picture, which has no mark at its start, so only where the name says so.
std::optional<PictureSize> ReadTargaSize(FileSource& source);

// Of an SVG drawing: its width and height at 96 units an inch, or else its view box.
std::optional<PictureSize> ReadDrawingSize(FileSource& source);

}  // namespace platform

#endif
