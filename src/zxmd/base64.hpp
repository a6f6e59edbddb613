// Base64 in groups of three bytes, which are four characters.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "internal/bytes.hpp"

namespace zx::md {

using Values = std::array<std::uint8_t, 256>;

// Encodes all groups but the last one, which may be incomplete. Returns how many bytes these were.
using EncodeGroups = std::size_t(const char* alphabet, const std::uint8_t* in, std::size_t size,
                                 char* out);

// Decodes whole groups without padding. `values` has the value of every character, which is 63
// outside the alphabet.
using DecodeGroups = void(const Values& values, const char* text, std::size_t size,
                          std::uint8_t* out);

#if defined __x86_64__
EncodeGroups encode_avx2;
DecodeGroups decode_avx2;
#elif defined __aarch64__
EncodeGroups encode_neon;
DecodeGroups decode_neon;
#endif

// Encodes the first 24 bits.
inline void encode_group(const char* alphabet, std::uint32_t bits, char* out) {
    out[0] = alphabet[bits >> 26U];
    out[1] = alphabet[bits >> 20U & 63U];
    out[2] = alphabet[bits >> 14U & 63U];
    out[3] = alphabet[bits >> 8U & 63U];
}

template <std::size_t Size>
std::uint32_t bits_of(const Values& values, const char* text) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < Size; ++i) {
        bits = bits << 6U | values[static_cast<std::uint8_t>(text[i])];
    }
    return bits;
}

// The next two work group by group, after the first `done` bytes or characters. The portable
// implementation does everything with them, the others what is left at the end.

[[gnu::always_inline]] inline std::size_t encode_rest(const char* alphabet, const std::uint8_t* in,
                                                      std::size_t size, char* out,
                                                      std::size_t done) {
    for (char* to = out + done / 3 * 4; size - done > 3; done += 3, to += 4) {
        encode_group(alphabet, load_be32(in + done), to);
    }
    return done;
}

[[gnu::always_inline]] inline void decode_rest(const Values& values, const char* text,
                                               std::size_t size, std::uint8_t* out,
                                               std::size_t done) {
    for (; done != size; done += 4) {
        const std::uint32_t bits = bits_of<4>(values, text + done);
        std::uint8_t* const to = out + done / 4 * 3;
        to[0] = static_cast<std::uint8_t>(bits >> 16U);
        to[1] = static_cast<std::uint8_t>(bits >> 8U);
        to[2] = static_cast<std::uint8_t>(bits);
    }
}

}  // namespace zx::md
