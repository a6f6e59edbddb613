#include "zxmd.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "internal/log.hpp"

namespace {

constexpr char kTag[] = "ZXMD";
constexpr char kPad = '=';
constexpr std::size_t kLetters = 64;

using Values = std::array<std::uint8_t, 256>;

std::uint8_t byte_of(char c) {
    return static_cast<std::uint8_t>(c);
}

// The value of every character. One that is not in the alphabet counts as all ones.
Values values_of(const char* alphabet) {
    Values values;
    values.fill(kLetters - 1);
    for (std::size_t i = kLetters; i-- > 0;) {
        values[byte_of(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

std::uint32_t first_pair(const Values& values, const char* group) {
    return static_cast<std::uint32_t>(values[byte_of(group[0])]) << 18U |
           static_cast<std::uint32_t>(values[byte_of(group[1])]) << 12U;
}

// A group that is padded or cut: 0, 1 or 2 bytes.
std::uint32_t decode_last(const Values& values, const char* group, std::size_t size,
                          std::uint8_t* out) {
    if (size < 2) {
        return 0;
    }
    std::uint32_t bits = first_pair(values, group);
    out[0] = static_cast<std::uint8_t>(bits >> 16U);
    if (size < 3 || group[2] == kPad) {
        return 1;
    }
    bits |= static_cast<std::uint32_t>(values[byte_of(group[2])]) << 6U;
    out[1] = static_cast<std::uint8_t>(bits >> 8U);
    return 2;
}

}  // namespace

extern "C" uint32_t zxmd_api_ascii2Base64(const char* alphabet, const uint8_t* in, uint32_t len,
                                          char* out) {
    if (alphabet == nullptr || in == nullptr || out == nullptr) {
        ZX_LOG_PARAM(alphabet == nullptr ? "alphabet" : in == nullptr ? "in" : "out");
        return 0;
    }
    if (len > ZXMD_BASE64_MAX_INPUT) {
        ZX_LOG_PARAM("len");
        return 0;
    }
    const std::uint8_t* const end = in + (len - len % 3);
    char* to = out;
    for (; in != end; in += 3, to += 4) {
        to[0] = alphabet[in[0] >> 2U];
        to[1] = alphabet[(in[0] & 3U) << 4U | in[1] >> 4U];
        to[2] = alphabet[(in[1] & 15U) << 2U | in[2] >> 6U];
        to[3] = alphabet[in[2] & 63U];
    }
    if (const std::uint32_t left = len % 3; left != 0) {
        const std::uint32_t second = left == 2 ? in[1] : 0U;
        to[0] = alphabet[in[0] >> 2U];
        to[1] = alphabet[(in[0] & 3U) << 4U | second >> 4U];
        to[2] = left == 2 ? alphabet[(second & 15U) << 2U] : kPad;
        to[3] = kPad;
        to += 4;
    }
    *to = '\0';
    return static_cast<uint32_t>(to - out);
}

extern "C" uint32_t zxmd_api_base642Ascii(const char* alphabet, const char* in, uint8_t* out) {
    if (alphabet == nullptr || in == nullptr || out == nullptr) {
        ZX_LOG_PARAM(alphabet == nullptr ? "alphabet" : in == nullptr ? "in" : "out");
        return 0;
    }
    const Values values = values_of(alphabet);
    const std::size_t size = std::strlen(in);
    std::uint32_t count = 0;
    for (std::size_t at = 0; at < size; at += 4, count += 3) {
        const char* const group = in + at;
        if (size - at < 4 || group[2] == kPad || group[3] == kPad) {
            return count + decode_last(values, group, std::min<std::size_t>(size - at, 4), out);
        }
        const std::uint32_t bits = first_pair(values, group) |
                                   static_cast<std::uint32_t>(values[byte_of(group[2])]) << 6U |
                                   values[byte_of(group[3])];
        out[0] = static_cast<std::uint8_t>(bits >> 16U);
        out[1] = static_cast<std::uint8_t>(bits >> 8U);
        out[2] = static_cast<std::uint8_t>(bits);
        out += 3;
    }
    return count;
}
