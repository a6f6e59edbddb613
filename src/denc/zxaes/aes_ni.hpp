// The instructions for AES of x86-64.
#pragma once

#include <immintrin.h>

#include "denc/zxaes/cipher.hpp"

#define ZX_TARGET_AES [[gnu::target("aes,ssse3,sse4.1")]]

namespace zx::aes {

using Block = __m128i;

ZX_TARGET_AES inline Block load(const void* at, std::size_t index = 0) {
    return _mm_loadu_si128(static_cast<const Block*>(at) + index);
}

ZX_TARGET_AES inline void store(void* at, std::size_t index, Block block) {
    _mm_storeu_si128(static_cast<Block*>(at) + index, block);
}

// Adds the first round key.
ZX_TARGET_AES inline Block begun(const Work& work, Block block) {
    return block ^ load(work.keys);
}

// Does all rounds.
template <Way way, std::size_t N>
ZX_TARGET_AES [[gnu::always_inline]] inline void transform(const Work& work, Block (&state)[N]) {
    Block key;
    for (unsigned round = 1; round < work.rounds; ++round) {
        key = load(work.keys, round);
        for (Block& block : state) {
            block =
                way == Way::encrypt ? _mm_aesenc_si128(block, key) : _mm_aesdec_si128(block, key);
        }
    }
    key = load(work.keys, work.rounds);
    for (Block& block : state) {
        block = way == Way::encrypt ? _mm_aesenclast_si128(block, key)
                                    : _mm_aesdeclast_si128(block, key);
    }
}

// Applies the S-box to each byte of a word.
ZX_TARGET_AES inline std::uint32_t substituted(std::uint32_t word) {
    const Block words = _mm_set1_epi32(static_cast<int>(word));
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_aeskeygenassist_si128(words, 0)));
}

// Applies InvMixColumns.
ZX_TARGET_AES inline Block unmixed(Block block) {
    return _mm_aesimc_si128(block);
}

}  // namespace zx::aes
