#include "PlivHost/Utf8.h"

#include "PlivHost/GlibPtr.h"

namespace platform {

std::string ToUtf8(std::string text) {
    if (g_utf8_validate_len(text.data(), text.size(), nullptr)) return text;
    const TextPtr valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return valid.get();
}

}  // namespace platform
