// Which file names are media files, and of what kind.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_MEDIA_TYPES_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_MEDIA_TYPES_H

#include <string_view>
#include <vector>

#include "MediaContent.h"

namespace platform {

// Decides by the extension of `fileName` (a name or a path), upper and lower case alike. False,
// and nothing stored, for a name that is not a media file's. `mime` is a constant of the program.
// Opens nothing, takes no lock, any thread.
bool LookUpMediaType(std::string_view fileName, media_content_type_e& kind, const char*& mime);

struct MediaType {
    const char* extension;  // lower case, without the dot
    media_content_type_e kind;
    const char* mime;
};

// The whole table, ordered by extension.
const std::vector<MediaType>& AllMediaTypes();

}  // namespace platform

#endif
