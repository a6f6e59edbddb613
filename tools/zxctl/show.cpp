#include "show.hpp"

#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "terminal/amount.hpp"
#include "terminal/text.hpp"
#include "view.hpp"
#include "zxlog.h"

namespace ctl {
namespace {

using terminal::clean, terminal::Table, terminal::title_of;

constexpr const char* kColourOff = "\x1b[0m";
constexpr const char* kBold = "\x1b[1m";

void print(const std::string& line) {
    std::puts(line.c_str());
}

// The colours of the levels 1 to 5.
const char* colour_of(const std::string& level) {
    constexpr const char* kColours[] = {"\x1b[1;31m", "\x1b[33m", "\x1b[36m", "", "\x1b[2m"};
    for (std::size_t i = 0; i < std::size(kColours); ++i) {
        if (strcasecmp(level.c_str(), strLoglevel_simple[i + 1]) == 0) {
            return kColours[i];
        }
    }
    return "";
}

// A level is a name or a number.
std::string level_name(const cJSON* level) {
    constexpr double kMost = 5;
    if (cJSON_IsNumber(level) != 0 && level->valuedouble >= 0 && level->valuedouble <= kMost) {
        return strLoglevel_simple[static_cast<std::size_t>(level->valuedouble)];
    }
    return value_text("level", level);
}

bool is_single(const cJSON* value) {
    return cJSON_IsArray(value) == 0 && cJSON_IsObject(value) == 0;
}

// "title value", one a line or all on one.
void show_singles(const cJSON* answer, bool on_one_line) {
    std::string line;
    Table table({{"", false}, {"", false}});
    const cJSON* its = nullptr;
    cJSON_ArrayForEach(its, answer) {
        const std::string_view key = its->string != nullptr ? its->string : "";
        // Most tables leave out nothing.
        if (is_single(its) && (!key.ends_with("left_out") || its->valuedouble != 0)) {
            line += (line.empty() ? "" : ", ") + title_of(key) + ' ' + value_text(key, its);
            table.add({title_of(key), value_text(key, its)});
        }
    }
    if (on_one_line && !line.empty()) {
        print(line);
    } else if (!on_one_line) {
        bool is_title = true;
        table.print(SIZE_MAX, [&](const std::string& row) {
            is_title ? void() : print(row);
            is_title = false;
        });
    }
}

void show_table(const Table& table, const Paper& paper) {
    bool is_title = true;
    table.print(paper.width, [&](const std::string& line) {
        print(is_title && paper.has_colours ? kBold + line + kColourOff : line);
        is_title = false;
    });
}

// Cycles and inversions are told in sentences, which are never cut.
bool show_sentences(const cJSON* array, const Paper& paper) {
    const std::string_view name = array->string != nullptr ? array->string : "";
    if (name != "cycles" && name != "inversions") {
        return false;
    }
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        const std::string what = name == "cycles" ? "deadlock" : "inversion of order";
        print((paper.has_colours ? colour_of("ERROR") : "") + what + ", " +
              value_text("age_s", member(item, "age_s")) + " ago: " +
              (paper.has_colours ? kColourOff : "") + value_text("text", member(item, "text")));
    }
    return true;
}

// Who waits for a lock; its row has only their number.
void show_waiting(const cJSON* locks) {
    const cJSON* lock = nullptr;
    cJSON_ArrayForEach(lock, locks) {
        const cJSON* its = nullptr;
        cJSON_ArrayForEach(its, member(lock, "waiting")) {
            print(value_text("name", member(lock, "name")) + ": " +
                  value_text("thread", member(its, "thread")) + " (" +
                  value_text("tid", member(its, "tid")) + ") waits at " +
                  value_text("place", member(its, "place")) + " for " +
                  value_text("waiting_us", member(its, "waiting_us")));
        }
    }
}

void show_array(const cJSON* array, const Paper& paper) {
    const std::string name = clean(array->string != nullptr ? array->string : "");
    if (array->child == nullptr) {
        print("no " + name);
    } else if (name == "lines") {
        const cJSON* line = nullptr;
        cJSON_ArrayForEach(line, array) {
            show_log_line(line, paper);
        }
    } else if (cJSON_IsObject(array->child) == 0) {
        const cJSON* its = nullptr;
        cJSON_ArrayForEach(its, array) {
            print(name + ": " + value_text("", its));
        }
    } else if (!show_sentences(array, paper)) {
        const View view = view_of(array);
        view.fields.empty() ? print(name + ": " + value_text("", array))
                            : show_table(table_of(view, array, false), paper);
    }
    if (name == "locks") {
        show_waiting(array);
    }
}

}  // namespace

Paper standard_output() {
    Paper paper;
    winsize size{};
    paper.has_colours = isatty(STDOUT_FILENO) == 1;
    if (paper.has_colours && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
        paper.width = size.ws_col;
    }
    return paper;
}

void show(cJSON* answer, const Paper& paper) {
    complete(answer);
    if (answer->child == nullptr) {
        print("nothing");
    }
    bool has_more = false;
    const cJSON* its = nullptr;
    cJSON_ArrayForEach(its, answer) {
        has_more = has_more || !is_single(its);
    }
    show_singles(answer, has_more);
    cJSON_ArrayForEach(its, answer) {
        if (cJSON_IsArray(its) != 0) {
            show_array(its, paper);
        } else if (cJSON_IsObject(its) != 0) {
            show_singles(its, false);
        }
    }
}

void show_log_line(const cJSON* line, const Paper& paper) {
    const std::string level = level_name(member(line, "level"));
    const std::string rest = " [" + level + "][" + value_text("tag", member(line, "tag")) + "] " +
                             value_text("text", member(line, "text"));
    const char* const colour = paper.has_colours ? colour_of(level) : "";
    print(value_text("at", member(line, "at")) + colour + rest +
          (*colour != '\0' ? kColourOff : ""));
}

}  // namespace ctl
