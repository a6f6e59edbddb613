#include "streams/sheet.hpp"

#include <algorithm>

#include "terminal/table.hpp"

namespace capture {

void sort_rows(Sheet& sheet, std::size_t column, bool reversed) {
    const bool is_number = sheet.columns[column].is_number;
    std::ranges::stable_sort(sheet.rows, [&](const auto& a, const auto& b) {
        const Cell& first = (reversed ? b : a)[column];
        const Cell& second = (reversed ? a : b)[column];
        return is_number ? first.number > second.number : first.text < second.text;
    });
}

std::vector<std::string> lines_of(const Sheet& sheet, std::size_t width) {
    std::vector<terminal::Column> columns;
    for (const SheetColumn& column : sheet.columns) {
        columns.push_back({column.title, column.is_number});
    }
    terminal::Table table(std::move(columns));
    for (const std::vector<Cell>& row : sheet.rows) {
        std::vector<std::string> texts;
        texts.reserve(row.size());
        for (const Cell& cell : row) {
            texts.push_back(cell.text);
        }
        table.add(std::move(texts));
    }
    std::vector<std::string> lines;
    table.print(width, [&](const std::string& line) { lines.push_back(line); });
    return lines;
}

}  // namespace capture
