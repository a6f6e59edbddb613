#include "denc/sha1/sha1_rounds.hpp"
#include "internal/bytes.hpp"
#include "internal/guard.hpp"

namespace {

using Schedule = std::array<std::uint32_t, 16>;

struct Source {
    Schedule& words;
    const std::uint8_t* block;

    // Each word takes the place of the one 16 words before. The compiler is told that the memory
    // may change at any time. So it keeps the words there, where they are wiped, and copies none
    // elsewhere.
    template <std::size_t kRound>
    [[gnu::always_inline]] inline std::uint32_t word() const {
        std::uint32_t word = 0;
        if constexpr (kRound < 16) {
            word = zx::load_be32(block + 4 * kRound);
        } else {
            word = std::rotl(words[(kRound + 13) % 16] ^ words[(kRound + 8) % 16] ^
                                 words[(kRound + 2) % 16] ^ words[kRound % 16],
                             1);
        }
        words[kRound % 16] = word;
        asm("" : "+m"(words));
        return word + zx::sha1::kConstants[kRound / 20];
    }
};

}  // namespace

void zx::sha1::process_portable(Words& hash, const std::uint8_t* blocks, std::size_t count) {
    Wiped<Schedule> words;
    for (; count != 0; --count, blocks += SHA1_BLOCK_SIZE) {
        const Source source{*words, blocks};
        Words state = {hash[0], hash[1], hash[2], hash[3], hash[4]};
        do_twenty<0>(state, source);
        do_twenty<20>(state, source);
        do_twenty<40>(state, source);
        do_twenty<60>(state, source);
        add(hash, state);
    }
}
