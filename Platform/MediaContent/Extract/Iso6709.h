// Geographic positions as stored in videos.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_ISO6709_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_ISO6709_H

#include <string_view>

namespace platform {

// Parses the latitude, the longitude and the altitude, if any (else 0), at the start of a text like
// "+48.8566+002.3522+035.0/" (ISO 6709, in degrees, in degrees and minutes, or in degrees, minutes
// and seconds). False, with the outputs unchanged, when the text does not start that way or the
// position is out of range. Thread-safe.
bool ParseIso6709(std::string_view text, double& latitude, double& longitude, double& altitude);

}  // namespace platform

#endif
