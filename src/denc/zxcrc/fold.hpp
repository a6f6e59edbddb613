// CRCs by carry-less multiplication, 16 bytes at a time.
//
// A message is a polynomial over GF(2), and its CRC is the remainder of a division by another one.
// Bits that stand n places before the end may be replaced by their product with the remainder of
// x^n, which is short. So the first 128 bits are folded onto later bits, until 128 are left. (V.
// Gopal et al., "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ", Intel, 2009.)
#pragma once

#include <cstddef>
#include <cstdint>

namespace zx::crc {

// A kind of CRC, always in 32 bits. One of 16 bits has its polynomial and its register in the upper
// half, as if multiplied by x^16.
struct Variant {
    std::uint32_t polynomial;  // without x^32
    std::uint32_t initial;
    bool is_reflected;  // the first bit of a byte is its least significant one
};

inline constexpr Variant kModbus{0x80050000, 0xFFFF0000, true};
inline constexpr Variant kMpeg2{0x04C11DB7, 0xFFFFFFFF, false};
inline constexpr Variant kXmodem{0x10210000, 0, false};

// The bits in the opposite order: swaps the halves, then the halves of each half, and so on.
template <typename Word>
constexpr Word reflected(Word word) {
    auto mask = static_cast<Word>(~Word{0});
    for (unsigned half = 4 * sizeof(Word); half != 0; half /= 2) {
        mask = static_cast<Word>(mask ^ mask << half);
        word = static_cast<Word>((word >> half & mask) | (word << half & ~mask));
    }
    return word;
}

// The remainder of x^n.
constexpr std::uint32_t remainder_of_power(std::uint32_t polynomial, unsigned n) {
    std::uint32_t remainder = 1;
    for (; n != 0; --n) {
        remainder = remainder << 1U ^ (remainder >> 31U != 0 ? polynomial : 0);
    }
    return remainder;
}

// The CRC of one byte.
constexpr std::uint32_t of_byte(const Variant& variant, std::uint8_t byte) {
    std::uint32_t crc = std::uint32_t{variant.is_reflected ? reflected(byte) : byte} << 24U;
    for (int bit = 0; bit < 8; ++bit) {
        crc = crc << 1U ^ (crc >> 31U != 0 ? variant.polynomial : 0);
    }
    return variant.is_reflected ? reflected(crc) : crc;
}

// The CRC of a message. A CRC of 16 bits is in the lower half if reflected, otherwise in the upper
// one.
using Crc = std::uint32_t(const std::uint8_t* at, std::size_t size);

#if defined __x86_64__
#define ZX_TARGET_NARROW [[gnu::target("pclmul,sse4.1,ssse3")]]
#define ZX_TARGET_WIDE   [[gnu::target("vpclmulqdq,avx2,pclmul,sse4.1,ssse3")]]
#define ZX_TARGET_WIDEST [[gnu::target("avx512f,avx512bw,vpclmulqdq,avx2,pclmul,sse4.1,ssse3")]]

// The fewest bytes for two and four blocks of 16 bytes in a register.
inline constexpr std::size_t kWideMin = 128;
inline constexpr std::size_t kWidestMin = 256;

template <const Variant& kVariant>
ZX_TARGET_WIDE std::uint32_t fold_wide(const std::uint8_t* at, std::size_t size);
template <const Variant& kVariant>
ZX_TARGET_WIDEST std::uint32_t fold_widest(const std::uint8_t* at, std::size_t size);
#elif defined __aarch64__
#define ZX_TARGET_NARROW  // the whole file has the target
#endif

#ifdef ZX_TARGET_NARROW
inline constexpr std::size_t kFoldMin = 16;

template <const Variant& kVariant>
ZX_TARGET_NARROW std::uint32_t fold_narrow(const std::uint8_t* at, std::size_t size);
#endif

}  // namespace zx::crc
