// Every text that comes from a file passes through here.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_CLEAN_TEXT_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_CLEAN_TEXT_H

#include <string>
#include <string_view>

namespace platform {

// Returns `text` as valid UTF-8: invalid bytes become U+FFFD, control characters become blanks, and
// leading and trailing blanks are removed; cut at a character boundary to kMaxMetadataText bytes.
// Cleaning a clean text changes nothing. Thread-safe.
std::string CleanText(std::string_view text);

// The same for a text whose encoding its format does not tell: what is not UTF-8 is Latin-1.
std::string CleanOldText(std::string_view text);

bool IsCleanText(std::string_view text);

}  // namespace platform

#endif
