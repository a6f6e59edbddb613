#include "zxmd.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "internal/args.hpp"
#include "internal/bytes.hpp"
#include "internal/cpu.hpp"
#include "internal/log.hpp"
#include "zxmd/base64.hpp"

namespace {

constexpr char kTag[] = "ZXMD";
constexpr char kPad = '=';
constexpr std::size_t kLetters = 64;
constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kPiece = 4096;  // characters that the cache keeps until they are decoded

using Values = std::array<std::uint8_t, 256>;

constexpr std::uint8_t byte_of(char c) {
    return static_cast<std::uint8_t>(c);
}

// The first 24 bits.
void encode_group(const char* alphabet, std::uint32_t bits, char* out) {
    out[0] = alphabet[bits >> 26U];
    out[1] = alphabet[bits >> 20U & 63U];
    out[2] = alphabet[bits >> 14U & 63U];
    out[3] = alphabet[bits >> 8U & 63U];
}

// Encodes all groups but the last, whole or not. Returns how many bytes these were.
std::size_t encode_groups(const char* alphabet, const std::uint8_t* in, std::size_t size,
                          char* out) {
    std::size_t done = 0;
#ifdef __x86_64__
    if (zx::cpu_features().avx2) {
        done = zx::md::encode_avx2(alphabet, in, size, out);
    }
#endif
    for (char* to = out + done / 3 * 4; size - done > 3; done += 3, to += 4) {
        encode_group(alphabet, zx::load_be32(in + done), to);
    }
    return done;
}

// Encodes 1 to 3 bytes.
void encode_last(const char* alphabet, const std::uint8_t* in, std::size_t size, char* out) {
    std::uint8_t bytes[4]{};
    std::memcpy(bytes, in, size);
    encode_group(alphabet, zx::load_be32(bytes), out);
    std::fill(out + 1 + size, out + 4, kPad);
}

// The value of every character. One that is not in the alphabet counts as all ones.
constexpr Values values_of(const char* alphabet) {
    Values values{};
    values.fill(kLetters - 1);
    for (std::size_t i = kLetters; i-- > 0;) {
        values[byte_of(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

// Nearly everybody's alphabet needs no work; a short text would feel it.
constexpr Values kStandardValues = values_of(kStandard);

// How many characters stand before the group that padding ends; whole groups.
std::size_t before_padding(const char* text, std::size_t size) {
    const char* at = text;
    const char* const end = text + size;
    while ((at = static_cast<const char*>(
                std::memchr(at, kPad, static_cast<std::size_t>(end - at)))) != nullptr) {
        const auto index = static_cast<std::size_t>(at - text);
        if (index % 4 >= 2) {
            return index - index % 4;
        }
        ++at;  // a letter of the alphabet, or garbage
    }
    return size - size % 4;
}

template <std::size_t Size>
std::uint32_t bits_of(const Values& values, const char* text) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < Size; ++i) {
        bits = bits << 6U | values[byte_of(text[i])];
    }
    return bits;
}

// Decodes whole groups without padding.
void decode_groups(const Values& values, const char* text, std::size_t size, std::uint8_t* out) {
    std::size_t done = 0;
#ifdef __x86_64__
    if (zx::cpu_features().avx2) {
        done = zx::md::decode_avx2(values.data(), text, size, out);
    }
#endif
    for (; done != size; done += 4) {
        const std::uint32_t bits = bits_of<4>(values, text + done);
        std::uint8_t* const to = out + done / 4 * 3;
        to[0] = static_cast<std::uint8_t>(bits >> 16U);
        to[1] = static_cast<std::uint8_t>(bits >> 8U);
        to[2] = static_cast<std::uint8_t>(bits);
    }
}

// A group that is padded or cut: 0, 1 or 2 bytes.
std::uint32_t decode_last(const Values& values, const char* group, std::size_t size,
                          std::uint8_t* out) {
    if (size < 2) {
        return 0;
    }
    out[0] = static_cast<std::uint8_t>(bits_of<2>(values, group) >> 4U);
    if (size < 3 || group[2] == kPad) {
        return 1;
    }
    out[1] = static_cast<std::uint8_t>(bits_of<3>(values, group) >> 2U);
    return 2;
}

// A whole text.
std::uint32_t decode(const Values& values, const char* in, std::uint8_t* out) {
    std::uint8_t* to = out;
    for (;;) {
        const std::size_t size = strnlen(in, kPiece);
        const std::size_t whole = before_padding(in, size);
        decode_groups(values, in, whole, to);
        in += whole;
        to += whole / 4 * 3;
        if (whole < kPiece) {
            to += decode_last(values, in, std::min<std::size_t>(size - whole, 4), to);
            return static_cast<std::uint32_t>(to - out);
        }
    }
}

}  // namespace

extern "C" uint32_t zxmd_api_ascii2Base64(const char* alphabet, const uint8_t* in, uint32_t len,
                                          char* out) {
    if (!ZX_ARE_GIVEN({alphabet, "alphabet"}, {in, "in"}, {out, "out"})) {
        return 0;
    }
    if (len > ZXMD_BASE64_MAX_INPUT) {
        ZX_LOG_PARAM("len");
        return 0;
    }
    char* to = out;
    if (len != 0) {
        const std::size_t done = encode_groups(alphabet, in, len, out);
        to += done / 3 * 4;
        encode_last(alphabet, in + done, len - done, to);
        to += 4;
    }
    *to = '\0';
    return static_cast<uint32_t>(to - out);
}

extern "C" uint32_t zxmd_api_base642Ascii(const char* alphabet, const char* in, uint8_t* out) {
    if (!ZX_ARE_GIVEN({alphabet, "alphabet"}, {in, "in"}, {out, "out"})) {
        return 0;
    }
    if (std::memcmp(alphabet, kStandard, kLetters) == 0) {
        return decode(kStandardValues, in, out);
    }
    return decode(values_of(alphabet), in, out);
}
