// Shows answers to people.
#pragma once

#include <cstddef>
#include <cstdint>

#include "answer.hpp"

namespace ctl {

// Where the answers are printed: standard output.
struct Paper {
    std::size_t width = SIZE_MAX;  // columns of a terminal; no limit for files and pipes
    bool has_colours = false;
};
[[nodiscard]] Paper standard_output();

// Prints an answer that is no error: single values, then its arrays as tables.
void show(cJSON* answer, const Paper& paper);

// Prints a line of a log.
void show_log_line(const cJSON* line, const Paper& paper);

}  // namespace ctl
