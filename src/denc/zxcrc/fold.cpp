#include "denc/zxcrc/fold.hpp"

#if defined __x86_64__
#include "denc/zxcrc/clmul_x86.hpp"
#elif defined __aarch64__
#include "denc/zxcrc/clmul_armv8.hpp"
#endif

#ifdef ZX_NARROW

// The lanes become registers only when the loops over them are unrolled completely.
#define ZX_UNROLLED _Pragma("GCC unroll 4")
#define ZX_WIDE     ZX_TARGET_WIDE [[gnu::always_inline]] inline
#define ZX_WIDEST   ZX_TARGET_WIDEST [[gnu::always_inline]] inline

namespace {

using namespace zx::crc;

constexpr std::ptrdiff_t kBlock = sizeof(Block);
constexpr int kLanes = 4;  // independent chains keep the multiplier busy
static_assert(kFoldMin == kBlock);

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

// Byte i becomes the former byte i + n, or 0 when there is no such byte.
ZX_NARROW Block slide(Block bytes, std::ptrdiff_t n) {
    constexpr std::uint8_t kNo = 0x80;
    static constexpr std::uint8_t kFrom[3 * kBlock] = {
        kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo,
        0,   1,   2,   3,   4,   5,   6,   7,   8,   9,   10,  11,  12,  13,  14,  15,
        kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo, kNo};
    return shuffled(bytes, load(kFrom + kBlock + n));
}

ZX_NARROW Block backwards() {
    return joined(0x0001020304050607, 0x08090A0B0C0D0E0F);
}

// The first bit of a message is the highest one of a register. In a reflected CRC it is the lowest
// one.
template <const Variant& kVariant>
struct Folder {
    static constexpr std::uint32_t kPolynomial = kVariant.polynomial;
    static constexpr bool kIsReflected = kVariant.is_reflected;
    // Bytes move this way to make room for those that follow.
    static constexpr std::ptrdiff_t kForward = kIsReflected ? 1 : -1;

    ZX_NARROW static Block load_block(const std::uint8_t* at) {
        return kIsReflected ? load(at) : shuffled(load(at), backwards());
    }

    ZX_NARROW static Block initial() {
        constexpr std::uint64_t kBits = kIsReflected ? std::uint64_t{reflected(kVariant.initial)}
                                                     : std::uint64_t{kVariant.initial} << 32U;
        return kIsReflected ? joined(0, kBits) : joined(kBits, 0);
    }

    // Half a register, multiplied by this, moves by n bits. The product of two reflected numbers is
    // one bit further already.
    static constexpr std::uint64_t factor(unsigned n) {
        return kIsReflected ? reflected(std::uint64_t{remainder_of_power(kPolynomial, n - 1)})
                            : remainder_of_power(kPolynomial, n);
    }

    template <unsigned kBits>
    ZX_NARROW static Block move_factors() {
        constexpr std::uint64_t kFirst = factor(kBits + 64);
        constexpr std::uint64_t kSecond = factor(kBits);
        return kIsReflected ? joined(kSecond, kFirst) : joined(kFirst, kSecond);
    }

    template <unsigned kBits>
    ZX_NARROW static Block move(Block bits) {
        const Block factors = move_factors<kBits>();
        return product<0, 0>(bits, factors) ^ product<1, 1>(bits, factors);
    }

    ZX_NARROW static Block append(Block folded, Block block) {
        return move<8 * kBlock>(folded) ^ block;
    }

    // Appends the last `size` bytes of `last`, 1 to 15 of them.
    ZX_NARROW static Block append_rest(Block folded, Block last, std::ptrdiff_t size) {
        const std::ptrdiff_t away = kForward * (kBlock - size);
        const Block rest = slide(slide(last, away), -away);
        return append(slide(folded, -away), slide(folded, kForward * size) | rest);
    }

    // The remainder. 128 bits, followed by 32 zeros, become 96 bits and then 64. The last step
    // divides by multiplying (Barrett).
    ZX_NARROW static std::uint32_t finish(Block folded) {
        const Block all = kIsReflected ? shuffled(reverse_bits(folded), backwards()) : folded;
        constexpr std::uint64_t kPowers[] = {remainder_of_power(kPolynomial, 96),
                                             remainder_of_power(kPolynomial, 64)};
        constexpr std::uint64_t kDivisor[] = {std::uint64_t{1} << 32U | kPolynomial,
                                              quotient_of_x64(kPolynomial)};
        const Block powers = joined(kPowers[1], kPowers[0]);
        const Block divisor = joined(kDivisor[1], kDivisor[0]);
        const Block bits96 = product<1, 0>(all, powers) ^ raised(all);
        const Block bits64 = product<1, 1>(bits96, powers) ^ bits96;
        const Block quotient = product<0, 1>(uppers(bits64), divisor);
        const std::uint32_t remainder = lowest(bits64 ^ product<0, 0>(uppers(quotient), divisor));
        return kIsReflected ? reflected(remainder) : remainder;
    }

    // Folds the blocks of 16 bytes and the rest that are left, after what is folded so far.
    ZX_NARROW static std::uint32_t run_on(Block folded, const std::uint8_t* at,
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
        Block lanes[kLanes] = {load_block(at) ^ initial()};
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
                lanes[i] = move<8 * kStep>(lanes[i]) ^ load_block(at);
            }
        }
        ZX_UNROLLED
        for (int i = 1; i < kLanes; ++i) {
            lanes[0] = append(lanes[0], lanes[i]);
        }
        return run_on(lanes[0], at, end);
    }

#ifdef __x86_64__
    // The same with two blocks in a register, for kWideMin bytes or more.

    static constexpr std::ptrdiff_t kPair = 2 * kBlock;
    static_assert(kWideMin == kLanes * kPair);

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

    static constexpr std::ptrdiff_t kFour = 4 * kBlock;
    static_assert(kWidestMin == kLanes * kFour);

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
        Block folded = _mm512_castsi512_si128(lanes[0]);
        folded = append(folded, _mm512_extracti32x4_epi32(lanes[0], 1));
        folded = append(folded, _mm512_extracti32x4_epi32(lanes[0], 2));
        folded = append(folded, _mm512_extracti32x4_epi32(lanes[0], 3));
        return run_on(folded, at, end);
    }
#endif
};

}  // namespace

#define ZX_FOLD(function)                                                                \
    template std::uint32_t zx::crc::function<kModbus>(const std::uint8_t*, std::size_t); \
    template std::uint32_t zx::crc::function<kMpeg2>(const std::uint8_t*, std::size_t);  \
    template std::uint32_t zx::crc::function<kXmodem>(const std::uint8_t*, std::size_t);

template <const Variant& kVariant>
ZX_TARGET_NARROW std::uint32_t zx::crc::fold_narrow(const std::uint8_t* at, std::size_t size) {
    return Folder<kVariant>::run(at, static_cast<std::ptrdiff_t>(size));
}
ZX_FOLD(fold_narrow)

#ifdef __x86_64__
template <const Variant& kVariant>
ZX_TARGET_WIDE std::uint32_t zx::crc::fold_wide(const std::uint8_t* at, std::size_t size) {
    return Folder<kVariant>::run_wide(at, static_cast<std::ptrdiff_t>(size));
}
ZX_FOLD(fold_wide)

template <const Variant& kVariant>
ZX_TARGET_WIDEST std::uint32_t zx::crc::fold_widest(const std::uint8_t* at, std::size_t size) {
    return Folder<kVariant>::run_widest(at, static_cast<std::ptrdiff_t>(size));
}
ZX_FOLD(fold_widest)
#endif

#endif
