// Times as media files write them.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_MOMENT_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_MOMENT_H

#include <string>
#include <string_view>

namespace platform {

// The date at the start of `text`, and the time after it, in ISO 8601 and as exact as they are:
// "2004", "2004-05", "2004-05-02", "2004-05-02T10:11:12.5+02:00". Takes EXIF's "2004:05:02
// 10:11:12" too. Empty for a text that starts with no possible date; what follows the first part
// that is not possible ("2004-00-00", "24:60") is left out. Thread-safe.
std::string ParseMoment(std::string_view text);

}  // namespace platform

#endif
