#include "denc/sha1/sha1_rounds.hpp"

#ifdef __aarch64__

#ifndef __clang__  // which takes it from src/CMakeLists.txt
#pragma GCC target("+crypto")
#endif
#include <arm_neon.h>

#include <utility>

namespace {

struct State {
    uint32x4_t abcd;
    std::uint32_t e;
};

// Does four rounds. The next four words of the schedule take the place of the oldest ones.
template <std::size_t kFour>
[[gnu::always_inline]] inline void four_rounds(State& state, uint32x4_t (&words)[4],
                                               const std::uint8_t* block) {
    uint32x4_t& next = words[kFour % 4];
    if constexpr (kFour < 4) {
        next = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(block + 16 * kFour)));
    } else {
        const uint32x4_t sum = vsha1su0q_u32(next, words[(kFour + 1) % 4], words[(kFour + 2) % 4]);
        next = vsha1su1q_u32(sum, words[(kFour + 3) % 4]);
    }
    const uint32x4_t added = next + zx::sha1::kConstants[kFour / 5];
    const std::uint32_t next_e = vsha1h_u32(vgetq_lane_u32(state.abcd, 0));
    if constexpr (kFour < 5) {
        state.abcd = vsha1cq_u32(state.abcd, state.e, added);
    } else if constexpr (kFour < 10 || kFour >= 15) {
        state.abcd = vsha1pq_u32(state.abcd, state.e, added);
    } else {
        state.abcd = vsha1mq_u32(state.abcd, state.e, added);
    }
    state.e = next_e;
}

template <std::size_t... kFours>
[[gnu::always_inline]] inline void process_block(State& state, const std::uint8_t* block,
                                                 std::index_sequence<kFours...>) {
    const State before = state;
    uint32x4_t words[4];
    (four_rounds<kFours>(state, words, block), ...);
    state.abcd += before.abcd;
    state.e += before.e;
}

}  // namespace

void zx::sha1::process_armv8(Words& hash, const std::uint8_t* blocks, std::size_t count) {
    State state{vld1q_u32(hash), hash[4]};
    for (; count != 0; --count, blocks += SHA1_BLOCK_SIZE) {
        process_block(state, blocks, std::make_index_sequence<20>());
    }
    vst1q_u32(hash, state.abcd);
    hash[4] = state.e;
}

#endif
