// The door through which every text of a file comes in.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_CLEAN_TEXT_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_CLEAN_TEXT_H

#include <string>
#include <string_view>

namespace platform {

// `text` as valid UTF-8: bytes that are none become U+FFFD, control characters become blanks, and
// blanks at both ends go; cut at a character's end to kMaxMetadataText bytes. Cleaning a clean
// text changes nothing. Any thread.
std::string CleanText(std::string_view text);

bool IsCleanText(std::string_view text);

}  // namespace platform

#endif
