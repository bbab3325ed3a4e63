#include "Endurance/RandomText.h"

#include <glib.h>

namespace test {
namespace {

std::string Valid(const std::string& bytes) {
    gchar* made = g_utf8_make_valid(bytes.c_str(), static_cast<gssize>(bytes.size()));
    const std::string text = made;
    g_free(made);
    return text;
}

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

}  // namespace

int RandomText::Number(int below) {
    return std::uniform_int_distribution<int>(0, below - 1)(m_random);
}

const std::string& RandomText::OneOf(const std::vector<std::string>& texts) {
    return texts[static_cast<size_t>(Number(static_cast<int>(texts.size())))];
}

std::string RandomText::Bytes(int length) {
    std::string bytes;
    for (int i = 0; i < length; ++i) bytes += static_cast<char>(Number(256));
    return bytes;
}

std::string RandomText::Any() {
    static const std::vector<std::string> kPieces = {
        "a",          "Z",      " ",        "\n",     "\t",     "'",      "\"",     "\\",
        "%s",         "%n",     "$USB_DIR", "../",    "/",      "-",      "0",      ";--",
        "\x7f",       "\x01",   "\u00e9",   "\u202e", "\ufeff", "\u0300", "\uffff", "\U0001f600",
        "\U0010ffff", "\ufffd", "*",        "{",      "}",      "[",      "0 OR 1"};
    std::string text;
    for (int i = Number(12); i > 0; --i) text += OneOf(kPieces);
    return OneIn(4) ? Valid(Bytes(Number(40))) : text;
}

std::string RandomText::Integer() {
    static const std::vector<std::string> kOdd = {
        "",           "-1",         "-0",          "+7",
        "2147483647", "2147483648", "-2147483648", "99999999999999999999",
        "0x2",        "1e3",        " 4",          "4 abc",
        "NaN",        "1.5",        "\u0664",      "1000",
        "1001"};
    return OneIn(2) ? OneOf(kOdd) : std::to_string(Number(300));
}

std::string RandomText::Huge() {
    static const std::vector<std::string> kPieces = {"x", "[", "{\"a\":", "\u00e9", "9", "\\"};
    return Repeated(OneOf(kPieces), 65536 + Number(150000));
}

std::string RandomText::Nested() {
    const int depth = 1 << Number(14);
    const bool closed = OneIn(2);
    if (OneIn(2)) return Repeated("[", depth) + (closed ? Repeated("]", depth) : "");
    return Repeated("{\"ids\":", depth) + "1" + (closed ? Repeated("}", depth) : "");
}

std::string RandomText::Value(int depth) {
    static const std::vector<std::string> kPlain = {
        "null",        "true",     "-1",
        "1e999",       "-0.0",     "123456789012345678901234567890",
        "\"\"",        "\"text\"", "\"\\u0000\"",
        "\"\\ud800\"", "\"\\x\"",  "'single'",
        "nul",         "/*c*/1",   "//c\n2",
        "0001",        ""};
    if (depth == 0 || OneIn(3)) return OneIn(3) ? '"' + Any() + '"' : OneOf(kPlain);
    const bool object = OneIn(2);
    std::string text = object ? "{" : "[";
    for (int i = Number(5); i > 0; --i) {
        if (object) text += '"' + Any() + "\":";
        text += Value(depth - 1) + (i > 1 || OneIn(8) ? "," : "");
    }
    return text + (object ? "}" : "]");
}

std::string RandomText::Json(const std::string& key) {
    switch (Number(5)) {
        case 0:
            return OneIn(20) ? Nested() : Value(4);
        case 1:
            return "{\"" + key + "\":" + Value(2) + "}";
        case 2:
            return "{\"" + key + "\":[" + Value(1) + ",\"" + Any() + "\"," + Value(2) + "]}";
        case 3:
            return Mutated("{\"" + key + "\":[\"one\",\"two\",3]}");
        default:
            return "{\"" + key + "\":[\"" + Any() + "\"]}";
    }
}

std::string RandomText::Mutated(const std::string& text) {
    std::string changed = text;
    for (int i = 1 + Number(3); i > 0; --i) {
        const size_t at = static_cast<size_t>(Number(static_cast<int>(changed.size()) + 1));
        switch (Number(4)) {
            case 0:
                changed.insert(at, Any());
                break;
            case 1:
                changed.erase(at, static_cast<size_t>(Number(4)));
                break;
            case 2:
                changed.insert(at, changed.substr(0, static_cast<size_t>(Number(20))));
                break;
            default:
                if (at < changed.size()) changed[at] = static_cast<char>(Number(256));
        }
    }
    return Valid(changed);
}

}  // namespace test
