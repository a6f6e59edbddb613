// Numbers with the units that people read.
#pragma once

#include <string>
#include <string_view>

namespace terminal {

// A number as a text. The end of its key tells the unit: _us and _s are times, _bytes and
// _bytes_per_s are sizes and rates, _percent is a share; all other numbers are counts. Any number
// is good, also one that is no number or infinite.
[[nodiscard]] std::string amount_text(std::string_view key, double value);

// The key of a member as people read it: without its unit, and with blanks.
[[nodiscard]] std::string title_of(std::string_view key);

}  // namespace terminal
