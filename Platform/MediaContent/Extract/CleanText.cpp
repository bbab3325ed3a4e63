#include "MediaContent/Extract/CleanText.h"

#include <glib.h>

#include <memory>

#include "MediaContent/Extract/Metadata.h"

namespace platform {
namespace {

// Longer texts are cut before cleaning, with room for what cleaning removes.
constexpr size_t kMaxRawText = 4 * kMaxMetadataText;

// C0, DEL and C1; the latter are two bytes in UTF-8: 0xC2 and the character. Returns the length in
// bytes of the control character at `at`, 0 when there is none.
size_t ControlAt(std::string_view text, size_t at) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c < 0x20 || c == 0x7f) return 1;
    const bool isC1 =
        c == 0xc2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xa0;
    return isC1 ? 2 : 0;
}

bool HasControls(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (ControlAt(text, i) > 0) return true;
    }
    return false;
}

void BlankControls(std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (const size_t length = ControlAt(text, i)) text.replace(i, length, " ");
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
    if (IsCleanText(text)) return std::string(text);
    text = text.substr(0, kMaxRawText);
    // A text in a fixed-length field is often padded with zero bytes: it ends at the first one.
    text = text.substr(0, text.find('\0'));
    if (text.empty()) return {};
    const std::unique_ptr<char, decltype(&g_free)> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), &g_free);
    std::string clean(valid.get());
    BlankControls(clean);
    Trim(clean);
    CutAtCharacter(clean, kMaxMetadataText);
    Trim(clean);
    return clean;
}

std::string CleanOldText(std::string_view text) {
    text = text.substr(0, kMaxRawText);
    if (g_utf8_validate_len(text.data(), text.size(), nullptr)) return CleanText(text);
    std::string utf8;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) utf8 += static_cast<char>(0xc0 | byte >> 6);
        utf8 += byte < 0x80 ? c : static_cast<char>(0x80 | (byte & 0x3f));
    }
    return CleanText(utf8);
}

bool IsCleanText(std::string_view text) {
    if (text.empty()) return true;
    return text.size() <= kMaxMetadataText && text.front() != ' ' && text.back() != ' ' &&
           g_utf8_validate_len(text.data(), text.size(), nullptr) && !HasControls(text);
}

}  // namespace platform
