// Text for D-Bus, which carries only valid UTF-8 without NUL bytes.
#ifndef PLATFORM_PLIV_HOST_UTF8_H
#define PLATFORM_PLIV_HOST_UTF8_H

#include <string>

namespace platform {

// Returns the text itself if D-Bus can carry it, else a copy in which every byte that it cannot
// carry (including NUL) is replaced by U+FFFD. Thread-safe.
std::string ToUtf8(std::string text);

}  // namespace platform

#endif
