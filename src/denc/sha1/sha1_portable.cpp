#include <array>
#include <bit>
#include <utility>

#include "denc/sha1/sha1_blocks.hpp"
#include "internal/bytes.hpp"
#include "internal/guard.hpp"

namespace {

using Schedule = std::array<std::uint32_t, 16>;

// For the rounds 0 to 19, 20 to 39 and so on.
constexpr std::array<std::uint32_t, 4> kConstants = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC,
                                                     0xCA62C1D6};

// Word `kStep` of the schedule, in place of the one 16 words before. The compiler is told that it
// may change any time: so it stays where it is wiped, and nothing of it is spilled elsewhere.
template <std::size_t kStep>
[[gnu::always_inline]] inline std::uint32_t next_word(Schedule& words, const std::uint8_t* block) {
    std::uint32_t word = 0;
    if constexpr (kStep < 16) {
        word = zx::load_be32(block + 4 * kStep);
    } else {
        word = std::rotl(words[(kStep + 13) % 16] ^ words[(kStep + 8) % 16] ^
                             words[(kStep + 2) % 16] ^ words[kStep % 16],
                         1);
    }
    words[kStep % 16] = word;
    asm("" : "+m"(words));
    return word;
}

template <std::size_t kStep>
[[gnu::always_inline]] inline void step(std::uint32_t a, std::uint32_t& b, std::uint32_t c,
                                        std::uint32_t d, std::uint32_t& e, Schedule& words,
                                        const std::uint8_t* block) {
    e += next_word<kStep>(words, block) + kConstants[kStep / 20];
    if constexpr (kStep < 20) {
        e += d ^ (b & (c ^ d));
    } else if constexpr (kStep < 40 || kStep >= 60) {
        e += b ^ c ^ d;
    } else {
        e += (b & c) + (d & (b ^ c));
    }
    e += std::rotl(a, 5);
    b = std::rotl(b, 30);
}

template <std::size_t... kFives>
[[gnu::always_inline]] inline void process_block(zx::sha1::Words& hash, const std::uint8_t* block,
                                                 Schedule& words, std::index_sequence<kFives...>) {
    auto [a, b, c, d, e] = hash;
    ((step<5 * kFives>(a, b, c, d, e, words, block),
      step<5 * kFives + 1>(e, a, b, c, d, words, block),
      step<5 * kFives + 2>(d, e, a, b, c, words, block),
      step<5 * kFives + 3>(c, d, e, a, b, words, block),
      step<5 * kFives + 4>(b, c, d, e, a, words, block)),
     ...);
    hash[0] += a;
    hash[1] += b;
    hash[2] += c;
    hash[3] += d;
    hash[4] += e;
}

}  // namespace

void zx::sha1::process_portable(Words& hash, const std::uint8_t* blocks, std::size_t count) {
    Wiped<Schedule> words;
    for (; count != 0; --count, blocks += SHA1_BLOCK_SIZE) {
        process_block(hash, blocks, *words, std::make_index_sequence<16>());
    }
}
