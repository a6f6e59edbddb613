#include "terminal/table.hpp"

#include <algorithm>
#include <numeric>

#include "terminal/text.hpp"

namespace terminal {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kLeastText = 12;
constexpr std::size_t kMostText = 200;  // of a text that is not in the last column

std::size_t total(const std::vector<std::size_t>& widths) {
    return std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
}

}  // namespace

void Table::print(std::size_t width, const std::function<void(const std::string&)>& line) const {
    const std::vector<std::size_t> widths = widths_for(width);
    const auto print_line = [&](const auto& text_at) {
        std::string text;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            text += fitted(text_at(i), widths[i], columns_[i].is_number);
            text.append(i + 1 < widths.size() ? kGap : 0, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        line(cut(text, width));
    };
    print_line([&](std::size_t i) -> const std::string& { return columns_[i].title; });
    for (const std::vector<std::string>& row : rows_) {
        print_line([&](std::size_t i) -> const std::string& { return row[i]; });
    }
}

std::vector<std::size_t> Table::widths_for(std::size_t width) const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        std::size_t most = width_of(columns_[i].title);
        for (const std::vector<std::string>& row : rows_) {
            most = std::max(most, width_of(row[i]));
        }
        const bool may_be_long = columns_[i].is_number || i + 1 == columns_.size();
        widths.push_back(may_be_long ? most : std::min(most, kMostText));
    }
    std::vector<std::size_t> least = widths;
    for (std::size_t i = 0; i < least.size(); ++i) {
        least[i] = columns_[i].is_number ? least[i] : std::min(least[i], kLeastText);
    }
    while (least.size() > 1 && total(least) > width) {
        least.pop_back();
    }
    widths.resize(least.size());
    while (total(widths) > width) {
        const auto excess = [&](std::size_t i) { return widths[i] - least[i]; };
        std::size_t longest = 0;
        for (std::size_t i = 1; i < widths.size(); ++i) {
            longest = excess(i) > excess(longest) ? i : longest;
        }
        if (excess(longest) == 0) {
            break;
        }
        --widths[longest];
    }
    return widths;
}

}  // namespace terminal
