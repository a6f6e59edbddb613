// What a program answers: JSON that nobody has checked yet.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/json.hpp"

namespace ctl {

using tools::Json;

// The object that the line is. Throws a Failure, with one sentence, for a line that is none or that
// has more than `kMostParts` parts: each part takes some hundred bytes of memory.
[[nodiscard]] Json parse_answer(std::string_view line);
inline constexpr std::size_t kMostParts = 300000;

// The member of an object; NULL: it has none.
[[nodiscard]] inline const cJSON* member(const cJSON* object, const char* key) {
    return cJSON_GetObjectItemCaseSensitive(object, key);
}

// The text of a member; "": it is no text.
[[nodiscard]] std::string_view text_member(const cJSON* object, const char* key);

// The number of a member; 0: it is no number.
[[nodiscard]] double number_member(const cJSON* object, const char* key);

// The sentence of an answer that is an error; "": it is none.
[[nodiscard]] std::string_view error_of(const cJSON* answer);

// A trace is too long to be parsed into a tree. This counts its spans, and tells whether it is a
// whole object, of which all brackets and texts are closed.
struct TraceShape {
    bool is_whole = false;
    std::size_t spans = 0;
};
[[nodiscard]] TraceShape shape_of_trace(std::string_view line);

}  // namespace ctl
