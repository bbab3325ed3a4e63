// Text for terminals: file names and tags must neither corrupt nor control them.
#ifndef TOOLS_CONTENTSCTL_TEXT_H
#define TOOLS_CONTENTSCTL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace contentsctl {

// Control characters, invisible characters that change the writing direction, and bytes that are
// not UTF-8 become visible escapes: \n, \x1b, \u202e.
std::string Printable(const std::string& text);

// The terminal columns of printable UTF-8 text: wide characters take two, combining ones none.
size_t DisplayWidth(const std::string& text);

// At most `columns` wide; longer text is cut and ends with an ellipsis.
std::string Shortened(const std::string& text, size_t columns);

std::string HumanSize(uint64_t bytes);        // "1.5 GiB"
std::string HumanTime(int64_t epochSeconds);  // "2024-05-01 12:30", local time

}  // namespace contentsctl

#endif
