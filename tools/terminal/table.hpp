// Rows and columns of clean texts.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace terminal {

struct Column {
    std::string title;
    bool is_number = false;  // numbers stand at the right of their column and are never cut
};

class Table {
public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    // Gives the titles and the rows, each a line of at most `width` columns. To fit, long texts are
    // cut first; then the last columns are left out.
    void print(std::size_t width, const std::function<void(const std::string&)>& line) const;

private:
    [[nodiscard]] std::vector<std::size_t> widths_for(std::size_t width) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace terminal
