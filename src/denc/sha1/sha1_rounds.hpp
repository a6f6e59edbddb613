// The rounds of SHA-1. Each implementation brings its own schedule of words.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "denc/sha1/sha1_blocks.hpp"

namespace zx::sha1 {

// One constant each for the rounds 0 to 19, 20 to 39 and so on.
inline constexpr std::array<std::uint32_t, 4> kConstants = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC,
                                                            0xCA62C1D6};

template <std::size_t kRound>
[[gnu::always_inline]] inline void do_round(std::uint32_t a, std::uint32_t& b, std::uint32_t c,
                                            std::uint32_t d, std::uint32_t& e, std::uint32_t word) {
    e += word;
    if constexpr (kRound < 20) {
        e += d ^ (b & (c ^ d));
    } else if constexpr (kRound < 40 || kRound >= 60) {
        e += b ^ c ^ d;
    } else {
        e += (b & c) + (d & (b ^ c));
    }
    e += std::rotl(a, 5);
    b = std::rotl(b, 30);
}

template <std::size_t kRound, typename Source>
[[gnu::always_inline]] inline void do_five(Words& state, const Source& source) {
    auto& [a, b, c, d, e] = state;
    do_round<kRound>(a, b, c, d, e, source.template word<kRound>());
    do_round<kRound + 1>(e, a, b, c, d, source.template word<kRound + 1>());
    do_round<kRound + 2>(d, e, a, b, c, source.template word<kRound + 2>());
    do_round<kRound + 3>(c, d, e, a, b, source.template word<kRound + 3>());
    do_round<kRound + 4>(b, c, d, e, a, source.template word<kRound + 4>());
}

// Does the twenty rounds from `kFirst` on, which share a constant. word<kRound>() of the source
// includes the constant.
template <std::size_t kFirst, typename Source>
[[gnu::always_inline]] inline void do_twenty(Words& state, const Source& source) {
    do_five<kFirst>(state, source);
    do_five<kFirst + 5>(state, source);
    do_five<kFirst + 10>(state, source);
    do_five<kFirst + 15>(state, source);
}

inline void add(Words& hash, const Words& state) {
    for (std::size_t i = 0; i < SHA1_HASH_WORDS; ++i) {
        hash[i] += state[i];
    }
}

}  // namespace zx::sha1
