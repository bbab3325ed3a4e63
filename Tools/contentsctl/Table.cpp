#include "Table.h"

#include <stdio.h>

#include <algorithm>

#include "Output.h"
#include "Text.h"

namespace contentsctl {

void Table::Add(const std::vector<std::string>& cells) {
    std::vector<std::string> row;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        std::string text = i < cells.size() ? Printable(cells[i]) : "";
        if (text.empty()) text = "-";
        row.push_back(m_columns[i].widest == 0 ? text : Shortened(text, m_columns[i].widest));
    }
    m_rows.push_back(std::move(row));
}

void Table::Measure() {
    for (size_t i = 0; i < m_columns.size(); ++i) {
        size_t width = DisplayWidth(m_columns[i].title);
        for (const auto& row : m_rows) width = std::max(width, DisplayWidth(row[i]));
        m_widths.push_back(width);
    }
}

void Table::PrintRow(const std::vector<std::string>& cells) const {
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
        const size_t width = DisplayWidth(cells[i]);
        const std::string padding(m_widths[i] > width ? m_widths[i] - width : 0, ' ');
        if (i > 0) line += "  ";
        if (m_columns[i].align == Align::Right) line += padding;
        line += cells[i];
        if (m_columns[i].align == Align::Left && i + 1 < cells.size()) line += padding;
    }
    puts(line.c_str());
}

void Table::Flush() {
    if (m_widths.empty()) {
        Measure();
        std::vector<std::string> titles;
        for (const auto& column : m_columns) titles.push_back(column.title);
        PrintRow(titles);
    }
    for (const auto& row : m_rows) PrintRow(row);
    m_rows.clear();
    FlushOutput();
}

}  // namespace contentsctl
