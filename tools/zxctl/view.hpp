// The tables that answers are shown as.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "answer.hpp"
#include "terminal/table.hpp"

namespace ctl {

// A column of a table: a member of each object in an array.
struct Field {
    std::string key;
    std::string title;
    std::string also;     // another member, printed after the first and a colon; "": none
    std::string only_if;  // a member that must be true; "": none
};

struct View {
    std::string array;  // the member of the answer that is the array
    std::vector<Field> fields;
    std::size_t sorted_by = 0;  // a field, and those after it; numbers have the greatest first
};

// How the array is best shown. One that this program does not know gets a column for each member of
// its objects.
[[nodiscard]] View view_of(const cJSON* array);

// The array's objects as rows. `reversed`: the smallest number first.
[[nodiscard]] terminal::Table table_of(const View& view, const cJSON* array, bool reversed);

// A value as people read it.
[[nodiscard]] std::string value_text(std::string_view key, const cJSON* value);

// Adds what can be computed from the members: the share of a FIFO that is in use.
void complete(cJSON* answer);

// For two answers to "memory": adds to the places of the later one what they have more than in the
// earlier one. Only places that differ stay.
void subtract(cJSON* later, const cJSON* earlier);

}  // namespace ctl
