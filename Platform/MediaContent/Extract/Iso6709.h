// Positions as videos carry them.
#ifndef PLATFORM_MEDIA_CONTENT_EXTRACT_ISO6709_H
#define PLATFORM_MEDIA_CONTENT_EXTRACT_ISO6709_H

#include <string_view>

namespace platform {

// Reads the latitude and longitude at the start of a text like "+48.8566+002.3522+035.0/"
// (ISO 6709, in degrees, in degrees and minutes, or in degrees, minutes and seconds). False, and
// nothing stored, when it does not begin so or lies off the globe. Any thread.
bool ParseIso6709(std::string_view text, double& latitude, double& longitude);

}  // namespace platform

#endif
