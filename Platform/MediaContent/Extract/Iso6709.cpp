#include "MediaContent/Extract/Iso6709.h"

#include "MediaContent/Extract/Metadata.h"

namespace platform {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Removes a run of digits from the front of the text.
std::string_view TakeDigits(std::string_view& text) {
    size_t length = 0;
    while (length < text.size() && IsDigit(text[length])) ++length;
    const std::string_view digits = text.substr(0, length);
    text.remove_prefix(length);
    return digits;
}

double Whole(std::string_view digits) {
    double value = 0.0;
    for (const char c : digits) value = value * 10.0 + (c - '0');
    return value;
}

double Fraction(std::string_view digits) {
    double value = 0.0;
    for (size_t i = digits.size(); i > 0; --i) value = (value + (digits[i - 1] - '0')) / 10.0;
    return value;
}

// Removes one signed angle from the front: `degreeDigits` digits of degrees, then two of minutes
// and two of seconds, which are optional from the end; the last unit may have a fraction.
bool TakeAngle(std::string_view& text, size_t degreeDigits, double limit, double& angle) {
    if (text.empty() || (text[0] != '+' && text[0] != '-')) return false;
    const double sign = text[0] == '-' ? -1.0 : 1.0;
    text.remove_prefix(1);
    const std::string_view whole = TakeDigits(text);
    if (whole.size() < degreeDigits || whole.size() > degreeDigits + 4 ||
        (whole.size() - degreeDigits) % 2 != 0)
        return false;
    double fraction = 0.0;
    if (!text.empty() && text[0] == '.') {
        text.remove_prefix(1);
        fraction = Fraction(TakeDigits(text));
    }
    double value = Whole(whole.substr(0, degreeDigits));
    double unit = 1.0;
    for (size_t at = degreeDigits; at < whole.size(); at += 2)
        value += Whole(whole.substr(at, 2)) * (unit /= 60.0);
    value += fraction * unit;
    if (value > limit) return false;
    angle = sign * value;
    return true;
}

// Metres, after a sign; 0 when there are none.
double TakeHeight(std::string_view text) {
    if (text.empty() || (text[0] != '+' && text[0] != '-')) return 0.0;
    const double sign = text[0] == '-' ? -1.0 : 1.0;
    text.remove_prefix(1);
    double value = Whole(TakeDigits(text));
    if (!text.empty() && text[0] == '.') value += Fraction(TakeDigits(text = text.substr(1)));
    return value < kHighestAltitude ? sign * value : 0.0;
}

}  // namespace

bool ParseIso6709(std::string_view text, double& latitude, double& longitude, double& altitude) {
    double first = 0.0;
    double second = 0.0;
    if (!TakeAngle(text, 2, 90.0, first) || !TakeAngle(text, 3, 180.0, second)) return false;
    latitude = first;
    longitude = second;
    altitude = TakeHeight(text);
    return true;
}

}  // namespace platform
