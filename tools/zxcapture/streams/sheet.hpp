// What a table shows: rows that are sorted by one of their columns.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace capture {

struct SheetColumn {
    std::string title;
    char key = '\0';  // the letter that sorts by this column; NUL: none
    bool is_number = false;
};

// A number is what rows are sorted by, the greatest first. A text is sorted as a text.
struct Cell {
    std::string text;  // clean
    double number = 0;
};

struct Sheet {
    std::string title;  // a word, such as "streams"
    std::vector<SheetColumn> columns;
    std::vector<std::vector<Cell>> rows;
    std::size_t sorted_by = 0;  // a column, unless the user chooses another
};

// Sorts the rows by a column; those that are equal stay as they are.
void sort_rows(Sheet& sheet, std::size_t column, bool reversed);

// The titles and the rows as lines of at most `width` columns.
[[nodiscard]] std::vector<std::string> lines_of(const Sheet& sheet, std::size_t width);

}  // namespace capture
