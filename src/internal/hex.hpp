// Bytes as hexadecimal digits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zx {

inline constexpr char kLowerDigits[] = "0123456789abcdef";
inline constexpr char kUpperDigits[] = "0123456789ABCDEF";

// Two digits for each byte, and a NUL.
inline void write_hex(char* out, const std::uint8_t* bytes, std::size_t size, const char* digits) {
    for (std::size_t i = 0; i < size; ++i) {
        out[2 * i] = digits[bytes[i] >> 4U];
        out[2 * i + 1] = digits[bytes[i] & 15U];
    }
    out[2 * size] = '\0';
}

}  // namespace zx
