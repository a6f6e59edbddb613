// The S-boxes, and tables that do the S-box and the mix of the columns in one step.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zx::aes {

using Substitution = std::array<std::uint8_t, 256>;

// What a byte in each of the four rows adds to its column, with the top row in the lowest byte.
using RoundTable = std::array<std::array<std::uint32_t, 256>, 4>;

extern const Substitution kSubstitution;
extern const Substitution kInverseSubstitution;
extern const RoundTable kRound;
extern const RoundTable kInverseRound;

// Byte `row` of a column.
constexpr std::uint8_t byte_of(std::uint32_t column, unsigned row) {
    return static_cast<std::uint8_t>(column >> (8 * row));
}

// Times x, modulo the polynomial of AES.
constexpr std::uint8_t doubled(std::uint8_t value) {
    return static_cast<std::uint8_t>(value << 1 ^ (value >> 7) * 0x1B);
}

}  // namespace zx::aes
