// A text table, aligned by display width.
#ifndef TOOLS_CONTENTSCTL_TABLE_H
#define TOOLS_CONTENTSCTL_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace contentsctl {

enum class Align { Left, Right };

// Collects rows and prints them in blocks: a long result appears as it arrives, and its columns
// keep the widths of the first block.
class Table {
public:
    struct Column {
        std::string title;
        Align align = Align::Left;
        size_t widest = 48;  // longer texts are shortened; 0: never
    };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    // Texts may contain anything; they are made printable here.
    void Add(const std::vector<std::string>& cells);
    // Prints what was added since the last call to standard output.
    void Flush();

private:
    void Measure();
    void PrintRow(const std::vector<std::string>& cells) const;

    const std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
    std::vector<size_t> m_widths;
};

}  // namespace contentsctl

#endif
