#include "JsonText.h"

#include <glib.h>

#include <algorithm>

// Clients compare the output of these two classes, and their successors format it differently.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace dorn {
namespace {

constexpr char kReplacement[] = "\xef\xbf\xbd";

// The length of the character at `at`, 0 when no character begins there. NUL is a character: JSON
// can carry it.
size_t CharacterAt(const char* at, const char* end) {
    if (static_cast<unsigned char>(*at) < 0x80) return 1;
    const gunichar character = g_utf8_get_char_validated(at, end - at);
    if (character == static_cast<gunichar>(-1) || character == static_cast<gunichar>(-2)) return 0;
    return static_cast<size_t>(g_utf8_next_char(at) - at);
}

bool IsUtf8(const char* at, const char* end) {
    while (at < end) {
        const size_t length = CharacterAt(at, end);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

bool IsUtf8(const Json::Value& value) {
    if (value.isString()) {
        const char* begin = nullptr;
        const char* end = nullptr;
        value.getString(&begin, &end);
        return IsUtf8(begin, end);
    }
    return std::all_of(value.begin(), value.end(),
                       [](const Json::Value& member) { return IsUtf8(member); });
}

std::string Repaired(const std::string& text) {
    std::string result;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end;) {
        const size_t length = CharacterAt(at, end);
        if (length == 0)
            result += kReplacement;
        else
            result.append(at, length);
        at += std::max<size_t>(length, 1);
    }
    return result;
}

// Keys are our own, and ASCII.
void Repair(Json::Value& value) {
    if (value.isString())
        value = Repaired(value.asString());
    else
        for (Json::Value& member : value) Repair(member);
}

}  // namespace

std::string WriteJson(const Json::Value& value) {
    Json::FastWriter writer;
    if (IsUtf8(value)) return writer.write(value);
    Json::Value repaired = value;
    Repair(repaired);
    return writer.write(repaired);
}

bool ParseJson(const std::string& text, Json::Value& root) {
    Json::Reader reader;
    return reader.parse(text, root, true);
}

}  // namespace dorn
