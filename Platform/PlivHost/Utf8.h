// Text at the door to D-Bus, which carries valid UTF-8 without NUL bytes and nothing else.
#ifndef PLATFORM_PLIV_HOST_UTF8_H
#define PLATFORM_PLIV_HOST_UTF8_H

#include <string>

namespace platform {

// The text itself when D-Bus can carry it, else a copy in which every byte that it cannot carry
// (NUL included) is replaced by U+FFFD. Any thread.
std::string ToUtf8(std::string text);

}  // namespace platform

#endif
