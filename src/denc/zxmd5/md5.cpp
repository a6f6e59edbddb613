#include "zxmd5.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

#include "internal/args.hpp"
#include "internal/bytes.hpp"
#include "internal/log.hpp"
#include "shared/hex.hpp"
#include "zxmem.h"

namespace {

constexpr char kTag[] = "ZXMD5";
constexpr std::size_t kBlock = 64;
constexpr std::size_t kLengthSize = 8;

// The integer parts of |sin(i + 1)| * 2^32.
constexpr std::array<std::uint32_t, 64> kSines = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};

constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// The word of the block that step `i` takes.
constexpr std::size_t word_of(std::size_t i) {
    constexpr std::size_t kFactors[] = {1, 5, 3, 7};
    constexpr std::size_t kOffsets[] = {0, 1, 5, 0};
    return (kFactors[i / 16] * i + kOffsets[i / 16]) % 16;
}

// Makes the compiler compute `value` here and not combine it with what follows.
[[gnu::always_inline]] inline void settle(std::uint32_t& value) {
    asm("" : "+r"(value));
}

// `b` is the result of the step before, and every step waits for it. So the speed of MD5 depends on
// how short the way from `b` to `a` is: everything that does not need `b` is added before. The two
// halves of the second round's choice have no bit in common, so they are added one after the other.
template <std::size_t kStep>
[[gnu::always_inline]] inline void step(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                        std::uint32_t d, const std::uint8_t* block) {
    constexpr std::size_t kRound = kStep / 16;
    a += zx::load_le32(block + 4 * word_of(kStep)) + kSines[kStep];
    settle(a);
    if constexpr (kRound == 0) {
        a += d ^ (b & (c ^ d));
    } else if constexpr (kRound == 1) {
        a += ~d & c;
        settle(a);
        a += d & b;
    } else if constexpr (kRound == 2) {
        a += b ^ (c ^ d);
    } else {
        a += c ^ (b | ~d);
    }
    a = std::rotl(a, kShifts[kRound][kStep % 4]) + b;
}

struct State {
    std::uint32_t a = 0x67452301;
    std::uint32_t b = 0xEFCDAB89;
    std::uint32_t c = 0x98BADCFE;
    std::uint32_t d = 0x10325476;
};

template <std::size_t... kFours>
[[gnu::always_inline]] inline void hash_block(State& state, const std::uint8_t* block,
                                              std::index_sequence<kFours...>) {
    auto [a, b, c, d] = state;
    ((step<4 * kFours>(a, b, c, d, block), step<4 * kFours + 1>(d, a, b, c, block),
      step<4 * kFours + 2>(c, d, a, b, block), step<4 * kFours + 3>(b, c, d, a, block)),
     ...);
    state.a += a;
    state.b += b;
    state.c += c;
    state.d += d;
}

// Digests `data` through `message`, which holds zeros afterwards. Each block is copied just before
// it is hashed and wiped just after: the processor does both while it waits for the steps.
State hash(std::uint8_t* message, std::size_t padded, const std::uint8_t* data, std::size_t size) {
    const std::size_t whole = size - size % kBlock;
    std::memset(message + whole, 0, padded - whole);
    if (size != whole) {
        std::memcpy(message + whole, data + whole, size - whole);
    }
    message[size] = 0x80;
    zx::store_le32(message + padded - kLengthSize, static_cast<std::uint32_t>(size << 3U));
    zx::store_le32(message + padded - kLengthSize / 2, static_cast<std::uint32_t>(size >> 29U));

    State state;
    for (std::size_t at = 0; at != padded; at += kBlock) {
        if (at < whole) {
            std::memcpy(message + at, data + at, kBlock);
        }
        hash_block(state, message + at, std::make_index_sequence<16>());
        explicit_bzero(message + at, kBlock);
    }
    return state;
}

}  // namespace

extern "C" int32_t zxmd5_innerapi_envCheck(uint64_t len) {
    if (len >= 0x2000000000000000) {
        ZX_LOG(error, "期望输入信息的长度小于等于为 2 的 64 比特，期望没有满足\n");
        return 0;
    }
    return 1;
}

extern "C" uint64_t zxmd5_innerapi_getPadLen(uint64_t len) {
    return (len + kLengthSize) / kBlock * kBlock + kBlock;
}

extern "C" uint32_t zxmd5_innerapi_leftrotate(uint32_t x, uint8_t c) {
    return std::rotl(x, c & 31);
}

extern "C" int32_t zxmd5_api_outNum(const uint8_t* data, uint64_t len, uint32_t digest[4]) {
    if (!ZX_ARE_GIVEN({digest, "digest"}) || (len != 0 && !ZX_ARE_GIVEN({data, "data"}))) {
        return 0;
    }
    if (zxmd5_innerapi_envCheck(len) == 0) {
        return 0;
    }
    if (len > ZXMD5_MAX_INPUT) {
        ZX_LOG_PARAM("len");
        return 0;
    }
    const auto padded = static_cast<std::uint32_t>(zxmd5_innerapi_getPadLen(len));
    void* message = zxmem_api_malloc(padded, "message", "src/denc/zxmd5", __LINE__);
    if (message == nullptr) {
        return 0;
    }
    const State state = hash(static_cast<std::uint8_t*>(message), padded, data, len);
    zxmem_api_free(&message);
    digest[0] = state.a;
    digest[1] = state.b;
    digest[2] = state.c;
    digest[3] = state.d;
    return 1;
}

extern "C" int32_t zxmd5_api_outStr(const uint8_t* data, uint64_t len, char* out) {
    if (!ZX_ARE_GIVEN({out, "out"})) {
        return 0;
    }
    constexpr std::size_t kSize = 16;
    std::memset(out, 0, kSize);
    std::uint32_t words[4]{};
    zxmd5_api_outNum(data, len, words);
    std::uint8_t bytes[kSize]{};
    for (std::size_t i = 0; i < std::size(words); ++i) {
        zx::store_le32(bytes + 4 * i, words[i]);
    }
    zx::write_hex(out, bytes, kSize, zx::kLowerDigits);
    return static_cast<int32_t>(kSize);
}
