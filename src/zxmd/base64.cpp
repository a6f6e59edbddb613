#include "zxmd.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "internal/bytes.hpp"
#include "internal/cpu.hpp"
#include "zxmd/base64.hpp"
#include "zxmd/messages.hpp"

namespace {

constexpr char kPad = '=';
constexpr std::size_t kLetters = 64;
constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kPiece = 4096;  // characters, which fit into the cache

using zx::md::bits_of;
using zx::md::encode_group;
using zx::md::Values;

constexpr std::uint8_t byte_of(char c) {
    return static_cast<std::uint8_t>(c);
}

std::size_t encode_portable(const char* alphabet, const std::uint8_t* in, std::size_t size,
                            char* out) {
    return zx::md::encode_rest(alphabet, in, size, out, 0);
}

void decode_portable(const Values& values, const char* text, std::size_t size, std::uint8_t* out) {
    zx::md::decode_rest(values, text, size, out, 0);
}

constexpr zx::Choice<zx::md::EncodeGroups*> kEncoders[] = {
#if defined __x86_64__
    {zx::kAvx2, 0, zx::md::encode_avx2},
#elif defined __aarch64__
    {zx::kNeon, 0, zx::md::encode_neon},
#endif
    {zx::kPortable, 0, encode_portable},
};

constexpr zx::Choice<zx::md::DecodeGroups*> kDecoders[] = {
#if defined __x86_64__
    {zx::kAvx2, 0, zx::md::decode_avx2},
#elif defined __aarch64__
    {zx::kNeon, 0, zx::md::decode_neon},
#endif
    {zx::kPortable, 0, decode_portable},
};

// Encodes 1 to 3 bytes.
void encode_last(const char* alphabet, const std::uint8_t* in, std::size_t size, char* out) {
    std::uint8_t bytes[4]{};
    std::memcpy(bytes, in, size);
    encode_group(alphabet, zx::load_be32(bytes), out);
    std::fill(out + 1 + size, out + 4, kPad);
}

// The value of every character. A character outside the alphabet counts as all ones.
constexpr Values values_of(const char* alphabet) {
    Values values{};
    values.fill(kLetters - 1);
    for (std::size_t i = kLetters; i-- > 0;) {
        values[byte_of(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

// The values of the usual alphabet are ready: making them would slow down short texts.
constexpr Values kStandardValues = values_of(kStandard);

// How many characters come before the group with padding; always whole groups.
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

// Decodes a padded or incomplete group to 0, 1 or 2 bytes.
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

// Decodes a whole text.
std::uint32_t decode(const Values& values, const char* in, std::uint8_t* out) {
    std::uint8_t* to = out;
    for (;;) {
        const std::size_t size = strnlen(in, kPiece);
        const std::size_t whole = before_padding(in, size);
        zx::pick(kDecoders)(values, in, whole, to);
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
        const std::size_t done = zx::pick(kEncoders)(alphabet, in, len, out);
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
