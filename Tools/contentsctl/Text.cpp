#include "Text.h"

#include <glib.h>
#include <stdio.h>
#include <time.h>

namespace contentsctl {
namespace {

bool IsDirectionMark(gunichar c) {
    return (c >= 0x200e && c <= 0x200f) || (c >= 0x202a && c <= 0x202e) ||
           (c >= 0x2066 && c <= 0x2069);
}

std::string Escape(gunichar c) {
    if (c == '\n') return "\\n";
    if (c == '\t') return "\\t";
    char text[16];
    snprintf(text, sizeof text, c < 0x100 ? "\\x%02x" : "\\u%04x", c);
    return text;
}

size_t WidthOf(gunichar c) {
    if (g_unichar_iszerowidth(c)) return 0;
    return g_unichar_iswide(c) ? 2 : 1;
}

}  // namespace

std::string Printable(const std::string& text) {
    std::string result;
    const char* end = text.data() + text.size();
    for (const char* at = text.data(); at < end;) {
        const gunichar c = g_utf8_get_char_validated(at, end - at);
        if (c == static_cast<gunichar>(-1) || c == static_cast<gunichar>(-2)) {
            result += Escape(static_cast<unsigned char>(*at++));
            continue;
        }
        const char* next = g_utf8_next_char(at);
        const bool odd = g_unichar_iscntrl(c) || IsDirectionMark(c) || c == 0x2028 || c == 0x2029;
        if (odd)
            result += Escape(c);
        else
            result.append(at, next);
        at = next;
    }
    return result;
}

size_t DisplayWidth(const std::string& text) {
    size_t width = 0;
    for (const char* at = text.c_str(); *at; at = g_utf8_next_char(at))
        width += WidthOf(g_utf8_get_char(at));
    return width;
}

std::string Shortened(const std::string& text, size_t columns) {
    if (DisplayWidth(text) <= columns) return text;
    size_t width = 0;
    const char* at = text.c_str();
    while (*at && width + WidthOf(g_utf8_get_char(at)) < columns) {
        width += WidthOf(g_utf8_get_char(at));
        at = g_utf8_next_char(at);
    }
    return text.substr(0, static_cast<size_t>(at - text.c_str())) + "\u2026";
}

std::string HumanSize(uint64_t bytes) {
    static constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < sizeof kUnits / sizeof *kUnits) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof text, unit == 0 || value >= 100 ? "%.0f %s" : "%.1f %s", value,
             kUnits[unit]);
    return text;
}

std::string HumanTime(int64_t epochSeconds) {
    const auto when = static_cast<time_t>(epochSeconds);
    tm local{};
    char text[32] = "-";
    if (localtime_r(&when, &local)) strftime(text, sizeof text, "%Y-%m-%d %H:%M", &local);
    return text;
}

}  // namespace contentsctl
