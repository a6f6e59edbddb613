// Bytes as hexadecimal digits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zx {

inline constexpr char kLowerDigits[] = "0123456789abcdef";
inline constexpr char kUpperDigits[] = "0123456789ABCDEF";

// Writes two digits. Returns their end.
inline char* put_hex(char* out, std::uint8_t byte, const char* digits = kLowerDigits) {
    *out++ = digits[byte >> 4U];
    *out++ = digits[byte & 15U];
    return out;
}

// Writes two digits for each byte, and a NUL.
inline void write_hex(char* out, const std::uint8_t* bytes, std::size_t size, const char* digits) {
    for (std::size_t i = 0; i < size; ++i) {
        out = put_hex(out, bytes[i], digits);
    }
    *out = '\0';
}

}  // namespace zx
