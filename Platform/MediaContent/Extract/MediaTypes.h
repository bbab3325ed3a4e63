// Which file names are media files, and of which kind.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_MEDIA_TYPES_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_MEDIA_TYPES_H

#include <string>
#include <string_view>
#include <vector>

#include "MediaContent.h"

namespace platform {

// Looks up the extension of `fileName` (a name or a path), ignoring case. False, with the outputs
// unchanged, when the name is not that of a media file. `mime` is a static string. Opens nothing,
// takes no lock; thread-safe.
bool LookUpMediaType(std::string_view fileName, media_content_type_e& kind, const char*& mime);

// The MIME type of a container that holds something else than its name says: "audio/ogg" with a
// film in it is "video/ogg". Thread-safe.
std::string MimeOfKind(const std::string& mime, media_content_type_e kind);

struct MediaType {
    const char* extension;  // lower case, without the dot
    media_content_type_e kind;
    const char* mime;
};

// The whole table, sorted by extension.
const std::vector<MediaType>& AllMediaTypes();

}  // namespace platform

#endif
