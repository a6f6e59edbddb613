// Carry-less multiplication on x86-64, and what else the folding needs.
#pragma once

// gcc warns of its own functions for 512 bits, because these begin with uninitialised registers.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "denc/zxcrc/fold.hpp"

#define ZX_NARROW ZX_TARGET_NARROW [[gnu::always_inline]] inline

namespace zx::crc {

using Block = __m128i;

ZX_NARROW Block load(const std::uint8_t* at) {
    return _mm_loadu_si128(static_cast<const Block*>(static_cast<const void*>(at)));
}

ZX_NARROW Block joined(std::uint64_t high, std::uint64_t low) {
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
}

// Multiplies half a block by half of another one. A half is 1 for the upper one, otherwise 0.
template <int kOfA, int kOfB>
ZX_NARROW Block product(Block a, Block b) {
    return _mm_clmulepi64_si128(a, b, kOfA | kOfB << 4);
}

// Takes the bytes from the places that `from` names. A place of 0x80 gives 0.
ZX_NARROW Block shuffled(Block bytes, Block from) {
    return _mm_shuffle_epi8(bytes, from);
}

// Reverses the bits of each byte.
ZX_NARROW Block reverse_bits(Block bits) {
    const Block nibble = _mm_set1_epi8(0x0F);
    const Block reversed = _mm_set_epi8(15, 7, 11, 3, 13, 5, 9, 1, 14, 6, 10, 2, 12, 4, 8, 0);
    const Block lower = _mm_shuffle_epi8(reversed, _mm_and_si128(bits, nibble));
    const Block upper = _mm_shuffle_epi8(reversed, _mm_and_si128(_mm_srli_epi16(bits, 4), nibble));
    return _mm_or_si128(_mm_slli_epi16(lower, 4), upper);
}

// The lower half, 32 bits further up.
ZX_NARROW Block raised(Block block) {
    return _mm_slli_si128(_mm_move_epi64(block), 4);
}

// Both halves without their lower 32 bits.
ZX_NARROW Block uppers(Block block) {
    return _mm_srli_epi64(block, 32);
}

ZX_NARROW std::uint32_t lowest(Block block) {
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(block));
}

}  // namespace zx::crc
