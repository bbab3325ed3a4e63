#include "MediaContent/Extract/Moment.h"

#include <algorithm>

namespace platform {
namespace {

constexpr size_t kFractionDigits = 9;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes the parts of a date and time from the front of a text, and writes them in ISO 8601.
class MomentParser {
public:
    explicit MomentParser(std::string_view text) : m_left(text) {}

    std::string Parse() {
        if (!Number(4, 1, 9999, "") || (!m_left.empty() && IsDigit(m_left[0]))) return {};
        if (Part("-:/.", 1, 12, "-") && Part("-:/.", 1, 31, "-") && Part("T ", 0, 23, "T")) Time();
        return m_moment;
    }

private:
    // The hour has been taken; alone it is no time.
    void Time() {
        const std::string date = m_moment.substr(0, m_moment.size() - 3);
        if (!Part(":", 0, 59, ":")) {
            m_moment = date;
            return;
        }
        if (Part(":", 0, 60, ":")) Fraction();
        Offset();
    }

    void Fraction() {
        if (m_left.size() < 2 || m_left[0] != '.') return;
        const auto end = std::find_if_not(m_left.begin() + 1, m_left.end(), IsDigit);
        const std::string_view digits(m_left.data() + 1,
                                      static_cast<size_t>(end - m_left.begin()) - 1);
        m_left.remove_prefix(digits.size() + 1);
        const size_t last = digits.substr(0, kFractionDigits).find_last_not_of('0');
        if (last != std::string_view::npos) m_moment += "." + std::string(digits, 0, last + 1);
    }

    void Offset() {
        if (m_left.substr(0, 1) == "Z") m_moment += "Z";
        if (m_left.empty() || (m_left[0] != '+' && m_left[0] != '-')) return;
        const std::string local = m_moment;
        const std::string sign(1, m_left[0]);
        m_left.remove_prefix(1);
        if (!Number(2, 0, 14, sign)) return;
        if (m_left.substr(0, 1) == ":") m_left.remove_prefix(1);
        if (!Number(2, 0, 59, ":")) m_moment = local;
    }

    // A separator, then a number of two digits.
    bool Part(std::string_view separators, int least, int most, std::string_view written) {
        if (m_left.empty() || separators.find(m_left[0]) == std::string_view::npos) return false;
        m_left.remove_prefix(1);
        return Number(2, least, most, written);
    }

    bool Number(size_t digits, int least, int most, std::string_view before) {
        const std::string_view number = m_left.substr(0, digits);
        if (number.size() < digits || !std::all_of(number.begin(), number.end(), IsDigit))
            return false;
        int value = 0;
        for (const char c : number) value = value * 10 + (c - '0');
        if (value < least || value > most) return false;
        m_left.remove_prefix(digits);
        m_moment.append(before).append(number);
        return true;
    }

    std::string_view m_left;
    std::string m_moment;
};

}  // namespace

std::string ParseMoment(std::string_view text) {
    return MomentParser(text).Parse();
}

}  // namespace platform
