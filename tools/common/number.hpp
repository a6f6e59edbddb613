// Numbers in texts.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tools {

// The number that the whole text is, in decimal digits; nothing for any other text.
inline std::optional<std::uint64_t> parse_number(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = error == std::errc() && end == text.data() + text.size();
    return is_number ? std::optional(number) : std::nullopt;
}

}  // namespace tools
