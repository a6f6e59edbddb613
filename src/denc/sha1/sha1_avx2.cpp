#include "denc/sha1/sha1_rounds.hpp"

#ifdef __x86_64__

#include <immintrin.h>

#include "denc/sha1/sha1_vectors.hpp"
#include "internal/guard.hpp"

#define ZX_TARGET_AVX2 [[gnu::target("avx2")]]
#define ZX_AVX2        ZX_TARGET_AVX2 [[gnu::always_inline]] inline

namespace {

// The words of one block, with the constants added. Adding these in the rounds is a tenth slower.
struct alignas(__m128i) Schedule {
    std::uint32_t words[80];

    template <std::size_t kRound>
    [[gnu::always_inline]] inline std::uint32_t word() const {
        return words[kRound];
    }
};

// The last eight groups of four words.
using Groups = __m128i[8];

template <int kBits>
ZX_AVX2 __m128i rotated(__m128i words) {
    return _mm_or_si128(_mm_slli_epi32(words, kBits), _mm_srli_epi32(words, 32 - kBits));
}

// Makes group `kGroup` in place of the one 8 groups before. Word i is the XOR of the words i-3,
// i-8, i-14 and i-16, rotated by one bit. From word 32 on the same follows from the words twice as
// far back, i-6, i-16, i-28 and i-32, rotated by two bits. None of these is in the group that is
// being made.
template <std::size_t kGroup>
ZX_AVX2 void make_group(Groups& groups, const std::uint8_t* block, Schedule& schedule) {
    __m128i next;
    if constexpr (kGroup < 4) {
        const __m128i big_endian = _mm_set_epi64x(0x0C0D0E0F08090A0B, 0x0405060700010203);
        next = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(block) + kGroup);
        next = _mm_shuffle_epi8(next, big_endian);
    } else if constexpr (kGroup < 8) {
        const __m128i known =
            _mm_xor_si128(_mm_alignr_epi8(groups[(kGroup + 5) % 8], groups[(kGroup + 4) % 8], 8),
                          _mm_xor_si128(groups[(kGroup + 4) % 8], groups[(kGroup + 6) % 8]));
        const __m128i three = _mm_xor_si128(known, _mm_srli_si128(groups[(kGroup + 7) % 8], 4));
        const __m128i first_in_last = _mm_slli_si128(three, 12);
        next = _mm_xor_si128(rotated<1>(three), rotated<2>(first_in_last));
    } else {
        const __m128i known =
            _mm_xor_si128(groups[(kGroup + 4) % 8],
                          _mm_xor_si128(groups[(kGroup + 1) % 8], groups[(kGroup + 0) % 8]));
        next = rotated<2>(_mm_xor_si128(
            known, _mm_alignr_epi8(groups[(kGroup + 7) % 8], groups[(kGroup + 6) % 8], 8)));
    }
    groups[kGroup % 8] = next;
    const __m128i constant = _mm_set1_epi32(static_cast<int>(zx::sha1::kConstants[kGroup / 5]));
    _mm_store_si128(reinterpret_cast<__m128i*>(schedule.words) + kGroup,
                    zx::sha1::add(next, constant));
}

template <std::size_t kFirst>
ZX_AVX2 void make_five(Groups& groups, const std::uint8_t* block, Schedule& schedule) {
    make_group<kFirst>(groups, block, schedule);
    make_group<kFirst + 1>(groups, block, schedule);
    make_group<kFirst + 2>(groups, block, schedule);
    make_group<kFirst + 3>(groups, block, schedule);
    make_group<kFirst + 4>(groups, block, schedule);
}

ZX_AVX2 void make_all(const std::uint8_t* block, Schedule& schedule) {
    Groups groups;
    make_five<0>(groups, block, schedule);
    make_five<5>(groups, block, schedule);
    make_five<10>(groups, block, schedule);
    make_five<15>(groups, block, schedule);
}

// Does the rounds of one block and, if there is a next one, prepares its words at the same time.
template <bool kHasNext>
ZX_AVX2 void process_block(zx::sha1::Words& hash, const Schedule& now,
                           const std::uint8_t* next_block, Schedule& next) {
    zx::sha1::Words state = {hash[0], hash[1], hash[2], hash[3], hash[4]};
    Groups groups;
    if constexpr (kHasNext) {
        make_five<0>(groups, next_block, next);
    }
    zx::sha1::do_twenty<0>(state, now);
    if constexpr (kHasNext) {
        make_five<5>(groups, next_block, next);
    }
    zx::sha1::do_twenty<20>(state, now);
    if constexpr (kHasNext) {
        make_five<10>(groups, next_block, next);
    }
    zx::sha1::do_twenty<40>(state, now);
    if constexpr (kHasNext) {
        make_five<15>(groups, next_block, next);
    }
    zx::sha1::do_twenty<60>(state, now);
    zx::sha1::add(hash, state);
}

}  // namespace

ZX_TARGET_AVX2 void zx::sha1::process_avx2(Words& hash, const std::uint8_t* blocks,
                                           std::size_t count) {
    Wiped<Schedule[2]> schedules;
    make_all(blocks, (*schedules)[0]);
    for (std::size_t i = 0; i + 1 < count; ++i) {
        blocks += SHA1_BLOCK_SIZE;
        process_block<true>(hash, (*schedules)[i % 2], blocks, (*schedules)[(i + 1) % 2]);
    }
    process_block<false>(hash, (*schedules)[(count - 1) % 2], nullptr, (*schedules)[0]);
}

#endif
