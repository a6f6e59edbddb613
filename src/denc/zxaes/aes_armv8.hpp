// The instructions for AES of arm64.
#pragma once

#ifndef __clang__  // which takes it from src/CMakeLists.txt
#pragma GCC target("+crypto")
#endif
#include <arm_neon.h>

#include "denc/zxaes/cipher.hpp"

#define ZX_TARGET_AES  // the whole file has the target

namespace zx::aes {

using Block = uint8x16_t;

inline Block load(const void* at, std::size_t index = 0) {
    return vld1q_u8(static_cast<const std::uint8_t*>(at) + kBlockSize * index);
}

inline void store(void* at, std::size_t index, Block block) {
    vst1q_u8(static_cast<std::uint8_t*>(at) + kBlockSize * index, block);
}

// The first step of each round adds a round key, so there is nothing to do yet.
inline Block begun(const Work& /*work*/, Block block) {
    return block;
}

// Does all rounds.
template <Way way, std::size_t N>
[[gnu::always_inline]] inline void transform(const Work& work, Block (&state)[N]) {
    Block key = load(work.keys);
    for (unsigned round = 1; round < work.rounds; ++round) {
        for (Block& block : state) {
            block = way == Way::encrypt ? vaesmcq_u8(vaeseq_u8(block, key))
                                        : vaesimcq_u8(vaesdq_u8(block, key));
        }
        key = load(work.keys, round);
    }
    const Block last = load(work.keys, work.rounds);
    for (Block& block : state) {
        block = (way == Way::encrypt ? vaeseq_u8(block, key) : vaesdq_u8(block, key)) ^ last;
    }
}

// Applies the S-box to each byte of a word. With four equal columns, moving the rows does nothing.
inline std::uint32_t substituted(std::uint32_t word) {
    const Block columns = vreinterpretq_u8_u32(vdupq_n_u32(word));
    return vgetq_lane_u32(vreinterpretq_u32_u8(vaeseq_u8(columns, vdupq_n_u8(0))), 0);
}

// Applies InvMixColumns.
inline Block unmixed(Block block) {
    return vaesimcq_u8(block);
}

}  // namespace zx::aes
