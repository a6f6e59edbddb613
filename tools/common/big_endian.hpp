// Reads and writes numbers in network byte order, at any address.
#pragma once

#include <cstdint>

namespace tools {

[[nodiscard]] constexpr std::uint16_t load_be16(const std::uint8_t* at) {
    return static_cast<std::uint16_t>(at[0] << 8U | at[1]);
}

[[nodiscard]] constexpr std::uint32_t load_be32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(load_be16(at)) << 16U | load_be16(at + 2);
}

constexpr void store_be16(std::uint8_t* at, std::uint16_t value) {
    at[0] = static_cast<std::uint8_t>(value >> 8U);
    at[1] = static_cast<std::uint8_t>(value);
}

}  // namespace tools
