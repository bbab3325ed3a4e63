#include "MediaContent/Extract/CleanText.h"

#include <glib.h>

#include <memory>

#include "MediaContent/Extract/Metadata.h"

namespace platform {
namespace {

// Longer texts are cut before they are looked at, with room for what cleaning takes away.
constexpr size_t MAX_RAW_TEXT = 4 * MAX_METADATA_TEXT;

// C0, DEL and C1; the latter are two bytes in UTF-8, 0xC2 and the character.
void BlankControls(std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c == 0x7f) {
            text[i] = ' ';
        } else if (c == 0xc2 && i + 1 < text.size() &&
                   static_cast<unsigned char>(text[i + 1]) < 0xa0) {
            text.replace(i, 2, " ");
        }
    }
}

void Trim(std::string& text) {
    text.erase(0, text.find_first_not_of(' '));
    text.erase(text.find_last_not_of(' ') + 1);
}

void CutAtCharacter(std::string& text, size_t limit) {
    if (text.size() <= limit) return;
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xc0) == 0x80) --limit;
    text.resize(limit);
}

}  // namespace

std::string CleanText(std::string_view text) {
    text = text.substr(0, MAX_RAW_TEXT);
    // A text of fixed length is often padded with zero bytes: what follows the first is no text.
    text = text.substr(0, text.find('\0'));
    if (text.empty()) return {};
    const std::unique_ptr<char, decltype(&g_free)> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), &g_free);
    std::string clean(valid.get());
    BlankControls(clean);
    Trim(clean);
    CutAtCharacter(clean, MAX_METADATA_TEXT);
    Trim(clean);
    return clean;
}

bool IsCleanText(std::string_view text) {
    return text.size() <= MAX_METADATA_TEXT && CleanText(text) == text;
}

}  // namespace platform
