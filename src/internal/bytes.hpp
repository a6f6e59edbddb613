// Big-endian and little-endian integers in byte buffers of any alignment.
#pragma once

#include <cstdint>

namespace zx {

[[nodiscard]] constexpr std::uint16_t load_be16(const std::uint8_t* at) {
    return static_cast<std::uint16_t>(at[0] << 8U | at[1]);
}

[[nodiscard]] constexpr std::uint32_t load_be32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) << 24U | static_cast<std::uint32_t>(at[1]) << 16U |
           static_cast<std::uint32_t>(at[2]) << 8U | static_cast<std::uint32_t>(at[3]);
}

constexpr void store_be16(std::uint8_t* at, std::uint16_t value) {
    at[0] = static_cast<std::uint8_t>(value >> 8U);
    at[1] = static_cast<std::uint8_t>(value);
}

constexpr void store_be32(std::uint8_t* at, std::uint32_t value) {
    at[0] = static_cast<std::uint8_t>(value >> 24U);
    at[1] = static_cast<std::uint8_t>(value >> 16U);
    at[2] = static_cast<std::uint8_t>(value >> 8U);
    at[3] = static_cast<std::uint8_t>(value);
}

[[nodiscard]] constexpr std::uint32_t load_le32(const std::uint8_t* at) {
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8U |
           static_cast<std::uint32_t>(at[2]) << 16U | static_cast<std::uint32_t>(at[3]) << 24U;
}

constexpr void store_le32(std::uint8_t* at, std::uint32_t value) {
    at[0] = static_cast<std::uint8_t>(value);
    at[1] = static_cast<std::uint8_t>(value >> 8U);
    at[2] = static_cast<std::uint8_t>(value >> 16U);
    at[3] = static_cast<std::uint8_t>(value >> 24U);
}

}  // namespace zx
