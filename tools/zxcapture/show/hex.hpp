// Bytes in hexadecimal digits and as text, as tcpdump shows them.
#pragma once

#include <span>

#include "show/text.hpp"

namespace capture {

// A line for each 16 bytes. A byte that is no printable ASCII character is a dot in the text.
void add_hex(Text& text, std::span<const std::uint8_t> bytes);

}  // namespace capture
