#include "streams/live_table.hpp"

#include <algorithm>

#include "terminal/text.hpp"

namespace capture {

using terminal::ScreenLine, terminal::Style;
using enum terminal::SpecialKey;

void LiveTable::set(std::string headline, std::vector<Sheet> sheets) {
    if (is_paused_ && !sheets_.empty()) {
        return;
    }
    headline_ = std::move(headline);
    sheets_ = std::move(sheets);
    choices_.resize(sheets_.size());
    for (std::size_t i = 0; i < sheets_.size(); ++i) {
        const Choice& choice = choices_[i];
        sort_rows(sheets_[i], choice.sorted_by.value_or(sheets_[i].sorted_by), choice.reversed);
    }
}

bool LiveTable::on_key(int key) {
    switch (key) {
        case 'q':
            return false;
        case ' ':
            is_paused_ = !is_paused_;
            break;
        case '\t':
        case kKeyRight:
            choose_sheet(chosen_ + 1);
            break;
        case kKeyLeft:
            choose_sheet(chosen_ + sheets_.size() - 1);
            break;
        case kKeyUp:
            move(false, 1);
            break;
        case kKeyDown:
            move(true, 1);
            break;
        case kKeyPageUp:
            move(false, page_);
            break;
        case kKeyPageDown:
            move(true, page_);
            break;
        default:
            choose_column(key);
    }
    return true;
}

void LiveTable::choose_sheet(std::size_t number) {
    chosen_ = sheets_.empty() ? 0 : number % sheets_.size();
}

void LiveTable::move(bool is_down, std::size_t rows) {
    if (!sheets_.empty()) {
        std::size_t& first = choices_[chosen_].first;
        first = is_down ? first + rows : first - std::min(first, rows);
    }
}

// The key of the column by which the rows are sorted already reverses the order.
void LiveTable::choose_column(int key) {
    if (sheets_.empty()) {
        return;
    }
    Choice& choice = choices_[chosen_];
    Sheet& sheet = sheets_[chosen_];
    const std::size_t before = choice.sorted_by.value_or(sheet.sorted_by);
    for (std::size_t i = 0; i < sheet.columns.size(); ++i) {
        if (sheet.columns[i].key != '\0' && sheet.columns[i].key == key) {
            choice.reversed = i == before && !choice.reversed;
            choice.sorted_by = i;
            sort_rows(sheet, i, choice.reversed);
            return;
        }
    }
}

std::string LiveTable::tabs() const {
    std::string text;
    for (std::size_t i = 0; i < sheets_.size(); ++i) {
        const std::string title = sheets_[i].title + ' ' + std::to_string(sheets_[i].rows.size());
        text += i == chosen_ ? "[" + title + "] " : " " + title + "  ";
    }
    if (!sheets_.empty()) {
        const Choice& choice = choices_[chosen_];
        const Sheet& sheet = sheets_[chosen_];
        text += " sorted by " + sheet.columns[choice.sorted_by.value_or(sheet.sorted_by)].title;
        text += choice.reversed ? ", reversed" : "";
    }
    return text + (is_paused_ ? "  paused" : "");
}

// The last ones may not fit.
std::string LiveTable::help() const {
    std::string text = "q quit  space pause";
    if (sheets_.empty()) {
        return text;
    }
    text += sheets_.size() > 1 ? "  Tab table" : "";
    text += "  sort by:";
    for (const SheetColumn& column : sheets_[chosen_].columns) {
        if (column.key != '\0') {
            text.append(1, ' ').append(1, column.key).append(1, ' ').append(column.title);
        }
    }
    return text;
}

std::vector<ScreenLine> LiveTable::draw(std::size_t width, std::size_t height) {
    std::vector<ScreenLine> lines = {{headline_, Style::plain}, {tabs(), Style::plain}};
    if (!sheets_.empty()) {
        const std::vector<std::string> table = lines_of(sheets_[chosen_], width);
        lines.push_back({table[0], Style::title});
        page_ = height > lines.size() + 2 ? height - lines.size() - 1 : 1;
        std::size_t& first = choices_[chosen_].first;
        const std::size_t rows = table.size() - 1;
        first = std::min(first, rows - std::min(rows, page_));
        for (std::size_t row = first; row < std::min(rows, first + page_); ++row) {
            lines.push_back({table[row + 1], Style::plain});
        }
    }
    lines.resize(height);
    if (!lines.empty()) {
        lines.back() = {help(), Style::dim};
    }
    for (ScreenLine& line : lines) {
        line.text = terminal::cut(line.text, width);
    }
    return lines;
}

}  // namespace capture
