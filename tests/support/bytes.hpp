// Random bytes, and bytes as hexadecimal texts.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace zx::test {

using Bytes = std::vector<std::uint8_t>;

// Random bytes. The storage ends with the last byte, so that a sanitizer sees an access beyond.
inline Bytes noise(std::size_t size) {
    static std::minstd_rand engine;
    Bytes bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(engine() >> 8U);
    }
    return bytes;
}

// "0a 0b0c" as bytes, followed by zeros up to `size`.
inline Bytes from_hex(const std::string& text, std::size_t size = 0) {
    Bytes bytes;
    std::string digits;
    for (const char c : text) {
        digits += std::isxdigit(c) != 0 ? std::string(1, c) : std::string();
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    bytes.resize(std::max(size, bytes.size()));
    return bytes;
}

inline std::string to_hex(const void* at, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const std::uint8_t*>(at)[i]);
        text += digits;
    }
    return text;
}

}  // namespace zx::test
