#include "denc/sha1/sha1_blocks.hpp"

#ifdef __x86_64__

#include <utility>

#include "denc/sha1/sha1_vectors.hpp"

#define ZX_TARGET_SHA [[gnu::target("sha,sse4.1,ssse3")]]

namespace {

using zx::sha1::add;

// The words of the state in the order of the instructions: A is the highest one.
struct State {
    __m128i abcd;
    __m128i e;
};

// Does four rounds. The next four words of the schedule take the place of the oldest ones.
template <int kFour>
ZX_TARGET_SHA [[gnu::always_inline]] inline void four_rounds(State& state, __m128i (&words)[4],
                                                             const std::uint8_t* block) {
    __m128i& next = words[kFour % 4];
    if constexpr (kFour < 4) {
        const __m128i first_highest = _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F);
        next = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(block) + kFour);
        next = _mm_shuffle_epi8(next, first_highest);
    } else {
        const __m128i sum =
            _mm_xor_si128(_mm_sha1msg1_epu32(next, words[(kFour + 1) % 4]), words[(kFour + 2) % 4]);
        next = _mm_sha1msg2_epu32(sum, words[(kFour + 3) % 4]);
    }
    const __m128i e = kFour == 0 ? add(state.e, next) : _mm_sha1nexte_epu32(state.e, next);
    state.e = state.abcd;
    state.abcd = _mm_sha1rnds4_epu32(state.abcd, e, kFour / 5);
}

template <int... kFours>
ZX_TARGET_SHA [[gnu::always_inline]] inline void process_block(
    State& state, const std::uint8_t* block, std::integer_sequence<int, kFours...>) {
    const State before = state;
    __m128i words[4];
    (four_rounds<kFours>(state, words, block), ...);
    state.e = _mm_sha1nexte_epu32(state.e, before.e);
    state.abcd = add(state.abcd, before.abcd);
}

}  // namespace

ZX_TARGET_SHA void zx::sha1::process_ni(Words& hash, const std::uint8_t* blocks,
                                        std::size_t count) {
    constexpr int kReverse = 0x1B;
    auto* const first_four = reinterpret_cast<__m128i_u*>(hash);
    State state{_mm_shuffle_epi32(_mm_loadu_si128(first_four), kReverse),
                _mm_insert_epi32(_mm_setzero_si128(), static_cast<int>(hash[4]), 3)};
    for (; count != 0; --count, blocks += SHA1_BLOCK_SIZE) {
        process_block(state, blocks, std::make_integer_sequence<int, 20>());
    }
    _mm_storeu_si128(first_four, _mm_shuffle_epi32(state.abcd, kReverse));
    hash[4] = static_cast<std::uint32_t>(_mm_extract_epi32(state.e, 3));
}

#endif
