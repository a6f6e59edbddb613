#include "denc/zxcrc/fold.hpp"

#ifdef __x86_64__

// gcc warns of its own functions for 512 bits, because these begin with uninitialised registers.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

// The lanes become registers only when the loops over them are unrolled completely.
#define ZX_UNROLLED _Pragma("GCC unroll 4")
#define ZX_NARROW   ZX_TARGET_NARROW [[gnu::always_inline]] inline
#define ZX_WIDE     ZX_TARGET_WIDE [[gnu::always_inline]] inline
#define ZX_WIDEST   ZX_TARGET_WIDEST [[gnu::always_inline]] inline

namespace {

using zx::crc::reflected;
using zx::crc::remainder_of_power;
using zx::crc::Variant;

constexpr std::ptrdiff_t kBlock = sizeof(__m128i);
constexpr std::ptrdiff_t kPair = 2 * kBlock;
constexpr std::ptrdiff_t kFour = 4 * kBlock;
constexpr int kLanes = 4;  // independent chains keep the multiplier busy
static_assert(zx::crc::kFoldMin == kBlock);
static_assert(zx::crc::kWideMin == kLanes * kPair && zx::crc::kWidestMin == kLanes * kFour);

constexpr std::uint64_t quotient_of_x64(std::uint32_t polynomial) {
    std::uint64_t quotient = 1;
    std::uint32_t remainder = polynomial;  // of x^32
    for (int i = 0; i < 32; ++i) {
        const std::uint32_t top = remainder >> 31U;
        quotient = quotient << 1U | top;
        remainder = remainder << 1U ^ (top != 0 ? polynomial : 0);
    }
    return quotient;
}

constexpr long long as_signed(std::uint64_t bits) {
    return static_cast<long long>(bits);
}

ZX_NARROW __m128i load(const std::uint8_t* at) {
    return _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(at)));
}

// Byte i becomes the former byte i + n, or 0 when there is no such byte.
ZX_NARROW __m128i slide(__m128i bytes, std::ptrdiff_t n) {
    constexpr std::uint8_t kNo = 0x80;
    static constexpr std::uint8_t kFrom[3 * kBlock] = {
        kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo,
        0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,
        kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo};
    return _mm_shuffle_epi8(bytes, load(kFrom + kBlock + n));
}

ZX_NARROW __m128i backwards() {
    return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

ZX_NARROW __m128i reverse_bytes(__m128i bytes) {
    return _mm_shuffle_epi8(bytes, backwards());
}

ZX_NARROW __m128i reverse_bits(__m128i bits) {
    const __m128i nibble = _mm_set1_epi8(0x0F);
    const __m128i reversed = _mm_set_epi8(15, 7, 11, 3, 13, 5, 9, 1, 14, 6, 10, 2, 12, 4, 8, 0);
    const __m128i lower = _mm_shuffle_epi8(reversed, _mm_and_si128(bits, nibble));
    const __m128i upper =
        _mm_shuffle_epi8(reversed, _mm_and_si128(_mm_srli_epi16(bits, 4), nibble));
    return reverse_bytes(_mm_or_si128(_mm_slli_epi16(lower, 4), upper));
}

// The first bit of a message is the highest one of a register. In a reflected CRC it is the lowest
// one.
template <const Variant& kVariant>
struct Folder {
    static constexpr std::uint32_t kPolynomial = kVariant.polynomial;
    static constexpr bool kIsReflected = kVariant.is_reflected;
    // Bytes move this way to make room for those that follow.
    static constexpr std::ptrdiff_t kForward = kIsReflected ? 1 : -1;

    ZX_NARROW static __m128i load_block(const std::uint8_t* at) {
        return kIsReflected ? load(at) : reverse_bytes(load(at));
    }

    ZX_NARROW static __m128i initial() {
        constexpr std::uint64_t kBits = kIsReflected ? std::uint64_t{reflected(kVariant.initial)}
                                                     : std::uint64_t{kVariant.initial} << 32U;
        return kIsReflected ? _mm_set_epi64x(0, as_signed(kBits))
                            : _mm_set_epi64x(as_signed(kBits), 0);
    }

    // Half a register, multiplied by this, moves by n bits. The product of two reflected numbers is
    // one bit further already.
    static constexpr long long factor(unsigned n) {
        return as_signed(kIsReflected
                             ? reflected(std::uint64_t{remainder_of_power(kPolynomial, n - 1)})
                             : remainder_of_power(kPolynomial, n));
    }

    template <unsigned kBits>
    ZX_NARROW static __m128i move_factors() {
        constexpr long long kFirst = factor(kBits + 64);
        constexpr long long kSecond = factor(kBits);
        return kIsReflected ? _mm_set_epi64x(kSecond, kFirst) : _mm_set_epi64x(kFirst, kSecond);
    }

    template <unsigned kBits>
    ZX_NARROW static __m128i move(__m128i bits) {
        const __m128i factors = move_factors<kBits>();
        return _mm_xor_si128(_mm_clmulepi64_si128(bits, factors, 0x00),
                             _mm_clmulepi64_si128(bits, factors, 0x11));
    }

    ZX_NARROW static __m128i append(__m128i folded, __m128i block) {
        return _mm_xor_si128(move<8 * kBlock>(folded), block);
    }

    // Appends the last `size` bytes of `last`, 1 to 15 of them.
    ZX_NARROW static __m128i append_rest(__m128i folded, __m128i last, std::ptrdiff_t size) {
        const std::ptrdiff_t away = kForward * (kBlock - size);
        const __m128i rest = slide(slide(last, away), -away);
        return append(slide(folded, -away), _mm_or_si128(slide(folded, kForward * size), rest));
    }

    // The remainder. 128 bits, followed by 32 zeros, become 96 bits and then 64. The last step
    // divides by multiplying (Barrett).
    ZX_NARROW static std::uint32_t finish(__m128i folded) {
        const __m128i all = kIsReflected ? reverse_bits(folded) : folded;
        constexpr std::uint64_t kPowers[] = {remainder_of_power(kPolynomial, 96),
                                             remainder_of_power(kPolynomial, 64)};
        constexpr std::uint64_t kDivisor[] = {std::uint64_t{1} << 32U | kPolynomial,
                                              quotient_of_x64(kPolynomial)};
        const __m128i powers = _mm_set_epi64x(as_signed(kPowers[1]), as_signed(kPowers[0]));
        const __m128i divisor = _mm_set_epi64x(as_signed(kDivisor[1]), as_signed(kDivisor[0]));
        const __m128i bits96 = _mm_xor_si128(_mm_clmulepi64_si128(all, powers, 0x01),
                                             _mm_slli_si128(_mm_move_epi64(all), 4));
        const __m128i bits64 = _mm_xor_si128(_mm_clmulepi64_si128(bits96, powers, 0x11), bits96);
        const __m128i quotient = _mm_clmulepi64_si128(_mm_srli_epi64(bits64, 32), divisor, 0x10);
        const __m128i product = _mm_clmulepi64_si128(_mm_srli_epi64(quotient, 32), divisor, 0x00);
        const auto remainder =
            static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_xor_si128(bits64, product)));
        return kIsReflected ? reflected(remainder) : remainder;
    }

    // Folds the blocks of 16 bytes and the rest that are left, after what is folded so far.
    ZX_NARROW static std::uint32_t run_on(__m128i folded, const std::uint8_t* at,
                                          const std::uint8_t* end) {
        for (; end - at >= kBlock; at += kBlock) {
            folded = append(folded, load_block(at));
        }
        if (at != end) {
            folded = append_rest(folded, load_block(end - kBlock), end - at);
        }
        return finish(folded);
    }

    ZX_NARROW static std::uint32_t run(const std::uint8_t* at, std::ptrdiff_t size) {
        constexpr std::ptrdiff_t kStep = kLanes * kBlock;
        const std::uint8_t* const end = at + size;
        __m128i lanes[kLanes] = {_mm_xor_si128(load_block(at), initial())};
        at += kBlock;
        if (size < 2 * kStep) {
            return run_on(lanes[0], at, end);
        }
        ZX_UNROLLED
        for (int i = 1; i < kLanes; ++i, at += kBlock) {
            lanes[i] = load_block(at);
        }
        while (end - at >= kStep) {
            ZX_UNROLLED
            for (int i = 0; i < kLanes; ++i, at += kBlock) {
                lanes[i] = _mm_xor_si128(move<8 * kStep>(lanes[i]), load_block(at));
            }
        }
        ZX_UNROLLED
        for (int i = 1; i < kLanes; ++i) {
            lanes[0] = append(lanes[0], lanes[i]);
        }
        return run_on(lanes[0], at, end);
    }

    // The same with two blocks in a register, for kWideMin bytes or more.

    ZX_WIDE static __m256i load_pair(const std::uint8_t* at) {
        const __m256i pair =
            _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(at)));
        return kIsReflected ? pair
                            : _mm256_shuffle_epi8(pair, _mm256_broadcastsi128_si256(backwards()));
    }

    template <unsigned kBits>
    ZX_WIDE static __m256i move_pair(__m256i pair) {
        const __m256i factors = _mm256_broadcastsi128_si256(move_factors<kBits>());
        return _mm256_xor_si256(_mm256_clmulepi64_epi128(pair, factors, 0x00),
                                _mm256_clmulepi64_epi128(pair, factors, 0x11));
    }

    ZX_WIDE static std::uint32_t run_wide(const std::uint8_t* at, std::ptrdiff_t size) {
        constexpr std::ptrdiff_t kStep = kLanes * kPair;
        const std::uint8_t* const end = at + size;
        __m256i lanes[kLanes];
        ZX_UNROLLED
        for (int i = 0; i < kLanes; ++i, at += kPair) {
            lanes[i] = load_pair(at);
        }
        lanes[0] = _mm256_xor_si256(lanes[0], _mm256_zextsi128_si256(initial()));
        while (end - at >= kStep) {
            ZX_UNROLLED
            for (int i = 0; i < kLanes; ++i, at += kPair) {
                lanes[i] = _mm256_xor_si256(move_pair<8 * kStep>(lanes[i]), load_pair(at));
            }
        }
        ZX_UNROLLED
        for (int i = 1; i < kLanes; ++i) {
            lanes[0] = _mm256_xor_si256(move_pair<8 * kPair>(lanes[0]), lanes[i]);
        }
        return run_on(
            append(_mm256_castsi256_si128(lanes[0]), _mm256_extracti128_si256(lanes[0], 1)), at,
            end);
    }

    // The same with four blocks in a register, for kWidestMin bytes or more.

    ZX_WIDEST static __m512i load_four(const std::uint8_t* at) {
        const __m512i four = _mm512_loadu_si512(at);
        return kIsReflected ? four : _mm512_shuffle_epi8(four, _mm512_broadcast_i32x4(backwards()));
    }

    template <unsigned kBits>
    ZX_WIDEST static __m512i append_four(__m512i folded, __m512i four) {
        constexpr int kXor = 0x96;  // the XOR of all three operands
        const __m512i factors = _mm512_broadcast_i32x4(move_factors<kBits>());
        return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(folded, factors, 0x00),
                                         _mm512_clmulepi64_epi128(folded, factors, 0x11), four,
                                         kXor);
    }

    ZX_WIDEST static std::uint32_t run_widest(const std::uint8_t* at, std::ptrdiff_t size) {
        constexpr std::ptrdiff_t kStep = kLanes * kFour;
        const std::uint8_t* const end = at + size;
        __m512i lanes[kLanes];
        ZX_UNROLLED
        for (int i = 0; i < kLanes; ++i, at += kFour) {
            lanes[i] = load_four(at);
        }
        lanes[0] = _mm512_xor_si512(lanes[0], _mm512_zextsi128_si512(initial()));
        while (end - at >= kStep) {
            ZX_UNROLLED
            for (int i = 0; i < kLanes; ++i, at += kFour) {
                lanes[i] = append_four<8 * kStep>(lanes[i], load_four(at));
            }
        }
        ZX_UNROLLED
        for (int i = 1; i < kLanes; ++i) {
            lanes[0] = append_four<8 * kFour>(lanes[0], lanes[i]);
        }
        for (; end - at >= kFour; at += kFour) {
            lanes[0] = append_four<8 * kFour>(lanes[0], load_four(at));
        }
        __m128i folded = _mm512_castsi512_si128(lanes[0]);
        folded = append(folded, _mm512_extracti32x4_epi32(lanes[0], 1));
        folded = append(folded, _mm512_extracti32x4_epi32(lanes[0], 2));
        folded = append(folded, _mm512_extracti32x4_epi32(lanes[0], 3));
        return run_on(folded, at, end);
    }
};

}  // namespace

template <const Variant& kVariant>
ZX_TARGET_NARROW std::uint32_t zx::crc::fold_narrow(const std::uint8_t* at, std::size_t size) {
    return Folder<kVariant>::run(at, static_cast<std::ptrdiff_t>(size));
}

template <const Variant& kVariant>
ZX_TARGET_WIDE std::uint32_t zx::crc::fold_wide(const std::uint8_t* at, std::size_t size) {
    return Folder<kVariant>::run_wide(at, static_cast<std::ptrdiff_t>(size));
}

template <const Variant& kVariant>
ZX_TARGET_WIDEST std::uint32_t zx::crc::fold_widest(const std::uint8_t* at, std::size_t size) {
    return Folder<kVariant>::run_widest(at, static_cast<std::ptrdiff_t>(size));
}

#define ZX_FOLD(variant)                                                                    \
    template std::uint32_t zx::crc::fold_narrow<variant>(const std::uint8_t*, std::size_t); \
    template std::uint32_t zx::crc::fold_wide<variant>(const std::uint8_t*, std::size_t);   \
    template std::uint32_t zx::crc::fold_widest<variant>(const std::uint8_t*, std::size_t);
ZX_FOLD(zx::crc::kModbus)
ZX_FOLD(zx::crc::kMpeg2)
ZX_FOLD(zx::crc::kXmodem)

#endif
