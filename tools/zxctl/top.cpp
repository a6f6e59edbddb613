#include "top.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "terminal/amount.hpp"
#include "terminal/text.hpp"
#include "view.hpp"

namespace ctl {
namespace {

using terminal::beginning, terminal::cut, terminal::fitted, terminal::width_of;
using enum terminal::SpecialKey;
using terminal::ScreenLine, terminal::Style, terminal::amount_text, terminal::clean;

enum Question : std::size_t { kThreads, kLocks, kWaits, kFifos, kMemory };

constexpr const char* kHelp[] = {
    "1 2 3 4, Tab, left, right   choose the panel",
    "up, down, page up, down     move through the rows",
    "s, S                        sort by the next column, by the one before",
    "r                           reverse the order",
    "p, space                    pause, go on",
    "h, ?                        this help, and back",
    "q                           quit",
};

double sum_of(const cJSON* array, const char* key) {
    double sum = 0;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        sum += number_member(item, key);
    }
    return sum;
}

double most_of(const cJSON* array, const char* key) {
    double most = 0;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        most = std::max(most, number_member(item, key));
    }
    return most;
}

std::string percent_of(double value) {
    return amount_text("count", std::round(value)) + " %";
}

std::string count_of(const cJSON* array) {
    return amount_text("count", cJSON_GetArraySize(array));
}

}  // namespace

void Top::take(std::size_t question, Json answer) {
    complete(answer.get());
    answers_[question] = std::move(answer);
}

void Top::set_state(const std::string& state, bool is_alarm) {
    state_ = state;
    has_alarm_ = is_alarm;
}

bool Top::on_key(int key) {
    Panel& panel = panels_[chosen_];
    const auto move = [&](bool is_down, std::size_t rows) {
        panel.first = is_down ? panel.first + rows : panel.first - std::min(panel.first, rows);
    };
    switch (key) {
        case 'q':
            return false;
        case 'h':
        case '?':
            has_help_ = !has_help_;
            break;
        case 'p':
        case ' ':
            is_paused_ = !is_paused_;
            break;
        case 'r':
            panel.reversed = !panel.reversed;
            break;
        case 's':
            sort_by(true);
            break;
        case 'S':
            sort_by(false);
            break;
        case '\t':
        case kKeyRight:
            chosen_ = (chosen_ + 1) % panels_.size();
            break;
        case kKeyLeft:
            chosen_ = (chosen_ + panels_.size() - 1) % panels_.size();
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
            if (key >= '1' && key < '1' + static_cast<int>(panels_.size())) {
                chosen_ = static_cast<std::size_t>(key - '1');
            }
    }
    return true;
}

void Top::sort_by(bool next) {
    Panel& panel = panels_[chosen_];
    if (const cJSON* const array = array_of(panel.question, panel.array); array != nullptr) {
        const View view = view_for(panel, array);
        panel.sorted_by =
            (view.sorted_by + (next ? 1 : view.fields.size() - 1)) % view.fields.size();
    }
}

// NULL: there is no answer, or it has no such array.
const cJSON* Top::array_of(std::size_t question, const char* name) const {
    const cJSON* const array = member(answers_[question].get(), name);
    return cJSON_IsArray(array) != 0 ? array : nullptr;
}

View Top::view_for(const Panel& panel, const cJSON* array) {
    View view = view_of(array);
    view.sorted_by = std::min(panel.sorted_by.value_or(view.sorted_by), view.fields.size() - 1);
    return view;
}

std::string Top::summary() const {
    const cJSON* const threads = array_of(kThreads, "threads");
    const cJSON* const fifos = array_of(kFifos, "fifos");
    const cJSON* const places = array_of(kMemory, "places");
    const double growth = sum_of(places, "bytes_per_s");
    return count_of(threads) + " threads " + percent_of(sum_of(threads, "cpu_percent")) + ", " +
           count_of(array_of(kLocks, "locks")) + " locks " + count_of(array_of(kWaits, "waits")) +
           " waiting, " + count_of(fifos) + " FIFOs " + percent_of(most_of(fifos, "use_percent")) +
           ", " + amount_text("bytes", number_member(answers_[kMemory].get(), "bytes")) +
           (growth >= 0 ? " +" : " ") + amount_text("_bytes_per_s", growth);
}

// A deadlock or an inversion of the order of locks; "": all is well.
std::string Top::alarm() const {
    const std::pair<const char*, std::string> kinds[] = {{"cycles", "deadlock: "},
                                                         {"inversions", "inversion of order: "}};
    for (const auto& [name, word] : kinds) {
        const cJSON* const array = array_of(kWaits, name);
        if (array != nullptr && array->child != nullptr) {
            return word + value_text("text", member(array->child, "text"));
        }
    }
    return "";
}

std::string Top::tabs() const {
    std::string text;
    for (std::size_t i = 0; i < panels_.size(); ++i) {
        const std::string title = std::to_string(i + 1) + ' ' + panels_[i].title;
        text += i == chosen_ ? "[" + title + "] " : " " + title + "  ";
    }
    const Panel& panel = panels_[chosen_];
    if (const cJSON* const array = array_of(panel.question, panel.array); array != nullptr) {
        const View view = view_for(panel, array);
        text += " sorted by " + view.fields[view.sorted_by].title;
        text += panel.reversed ? ", reversed" : "";
    }
    return text;
}

void Top::draw_panel(std::vector<ScreenLine>& lines, std::size_t width, std::size_t height) {
    Panel& panel = panels_[chosen_];
    const cJSON* const array = array_of(panel.question, panel.array);
    if (array == nullptr || array->child == nullptr) {
        const cJSON* const answer = answers_[panel.question].get();
        const std::string_view error = error_of(answer);
        lines.push_back({answer == nullptr ? "no answer yet"
                         : error.empty()   ? std::string("no ") + panel.title
                                           : "the program says: " + clean(error),
                         Style::dim});
        return;
    }
    const View view = view_for(panel, array);
    page_ = height > 1 ? height - 1 : 1;
    const auto rows = static_cast<std::size_t>(cJSON_GetArraySize(array));
    panel.first = std::min(panel.first, rows - std::min(rows, page_));
    std::size_t row = 0;  // 0: the titles
    table_of(view, array, panel.reversed).print(width, [&](const std::string& line) {
        if (row == 0) {
            lines.push_back({line, Style::title});
        } else if (row > panel.first && row <= panel.first + page_) {
            lines.push_back({line, Style::plain});
        }
        ++row;
    });
}

std::vector<ScreenLine> Top::draw(std::size_t width, std::size_t height) {
    constexpr std::size_t kMostAlarmLines = 3;
    const std::string state = is_paused_ && !has_alarm_ ? "paused" : state_;
    const std::size_t room = width - std::min(width, width_of(state) + 1);
    std::string first = fitted(who_, room, false);
    first.append(1, ' ').append(state);
    std::vector<ScreenLine> lines;
    lines.push_back({std::move(first), has_alarm_ ? Style::alarm : Style::plain});
    lines.push_back({summary(), Style::plain});
    std::string rest = alarm();
    for (std::size_t i = 1; !rest.empty() && width > 1; ++i) {
        std::string part = i < kMostAlarmLines ? beginning(rest, width) : cut(rest, width);
        rest.erase(0, i < kMostAlarmLines ? part.size() : rest.size());
        lines.push_back({std::move(part), Style::alarm});
    }
    lines.push_back({tabs(), Style::plain});
    if (has_help_) {
        for (const char* const line : kHelp) {
            lines.push_back({line, Style::plain});
        }
    } else {
        draw_panel(lines, width, height - std::min(height, lines.size() + 1));
    }
    lines.resize(height);
    if (!lines.empty()) {
        lines.back().text = "1-4 panel  s sort  r reverse  p pause  h help  q quit";
        lines.back().style = Style::dim;
    }
    for (ScreenLine& line : lines) {
        line.text = cut(line.text, width);
    }
    return lines;
}

}  // namespace ctl
