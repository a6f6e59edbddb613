// Carry-less multiplication on arm64, and what else the folding needs.
#pragma once

#ifndef __clang__  // which takes it from src/CMakeLists.txt
#pragma GCC target("+crypto")
#endif
#include <arm_neon.h>

#include "denc/zxcrc/fold.hpp"

#define ZX_NARROW [[gnu::always_inline]] inline

namespace zx::crc {

using Block = uint64x2_t;

ZX_NARROW Block load(const std::uint8_t* at) {
    return vreinterpretq_u64_u8(vld1q_u8(at));
}

ZX_NARROW Block joined(std::uint64_t high, std::uint64_t low) {
    return Block{low, high};
}

// Multiplies half a block by half of another one. A half is 1 for the upper one, otherwise 0.
template <int kOfA, int kOfB>
ZX_NARROW Block product(Block a, Block b) {
    const poly64x2_t pa = vreinterpretq_p64_u64(a);
    const poly64x2_t pb = vreinterpretq_p64_u64(b);
    if constexpr ((kOfA & kOfB) == 1) {
        return vreinterpretq_u64_p128(vmull_high_p64(pa, pb));
    } else {
        return vreinterpretq_u64_p128(
            vmull_p64(vgetq_lane_p64(pa, kOfA), vgetq_lane_p64(pb, kOfB)));
    }
}

// Takes the bytes from the places that `from` names. A place of 0x80 gives 0.
ZX_NARROW Block shuffled(Block bytes, Block from) {
    return vreinterpretq_u64_u8(
        vqtbl1q_u8(vreinterpretq_u8_u64(bytes), vreinterpretq_u8_u64(from)));
}

// Reverses the bits of each byte.
ZX_NARROW Block reverse_bits(Block bits) {
    return vreinterpretq_u64_u8(vrbitq_u8(vreinterpretq_u8_u64(bits)));
}

// The lower half, 32 bits further up.
ZX_NARROW Block raised(Block block) {
    const uint32x4_t none = vdupq_n_u32(0);
    const Block lower = vsetq_lane_u64(0, block, 1);
    return vreinterpretq_u64_u32(vextq_u32(none, vreinterpretq_u32_u64(lower), 3));
}

// Both halves without their lower 32 bits.
ZX_NARROW Block uppers(Block block) {
    return vshrq_n_u64(block, 32);
}

ZX_NARROW std::uint32_t lowest(Block block) {
    return vgetq_lane_u32(vreinterpretq_u32_u64(block), 0);
}

}  // namespace zx::crc
