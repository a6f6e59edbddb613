// Texts that other programs made, as a terminal may get them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace terminal {

// A copy in which nothing can control a terminal: each control character, each byte that is no
// UTF-8 and each character without a width is replaced by "\x" and its bytes in hexadecimal digits.
// Without a UTF-8 locale, this is done to all characters that are not ASCII. A text of more than
// `kLongest` characters is cut.
[[nodiscard]] std::string clean(std::string_view text);
inline constexpr std::size_t kLongest = 8192;

// JSON that can be printed on a terminal: the same values, with escapes where a character could
// control it. `json` has no control characters of ASCII below the blank.
[[nodiscard]] std::string clean_json(std::string_view json);

// For clean texts: the columns that one takes; its beginning that fits into so many columns; the
// same with a mark when something is missing; the same with blanks up to that width.
[[nodiscard]] std::size_t width_of(std::string_view text);
[[nodiscard]] std::string beginning(std::string_view text, std::size_t columns);
[[nodiscard]] std::string cut(std::string_view text, std::size_t columns);
[[nodiscard]] std::string fitted(std::string_view text, std::size_t columns, bool to_the_right);

}  // namespace terminal
