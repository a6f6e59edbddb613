// AES by the processor's own instructions. Where no block needs the result of another, eight are
// worked on at once: their states and a round key fit into the registers.
#if defined __x86_64__
#include "denc/zxaes/aes_ni.hpp"
#elif defined __aarch64__
#include "denc/zxaes/aes_armv8.hpp"
#endif

#ifdef ZX_TARGET_AES

namespace {

using namespace zx::aes;

// Does the next N blocks. All of them are read before the first is written, because `in` and `out`
// may be the same.
template <Mode mode, Way way, std::size_t N>
ZX_TARGET_AES [[gnu::always_inline]] inline void group(const Work& work, Block& chain) {
    constexpr bool chained = mode != Mode::ecb && way == Way::encrypt;
    static_assert(N == 1 || !chained);
    Block state[N];
    for (std::size_t i = 0; i < N; ++i) {
        if constexpr (mode == Mode::cfb) {
            state[i] = begun(work, i == 0 ? chain : load(work.in, i - 1));
        } else {
            state[i] = begun(work, load(work.in, i));
        }
    }
    if constexpr (mode == Mode::cbc && chained) {  // done last, because the chain is ready last
        state[0] ^= chain;
    }
    transform<mode == Mode::cfb ? Way::decrypt : way>(work, state);
    for (std::size_t i = 0; i < N; ++i) {
        if constexpr (mode == Mode::cfb) {
            state[i] ^= load(work.in, i);
        } else if constexpr (mode == Mode::cbc && !chained) {
            state[i] ^= i == 0 ? chain : load(work.in, i - 1);
        }
    }
    if constexpr (mode != Mode::ecb) {
        chain = chained ? state[0] : load(work.in, N - 1);
    }
    for (std::size_t i = 0; i < N; ++i) {
        store(work.out, i, state[i]);
    }
}

// Does groups of N blocks, then what is left in groups of half the size, and so on.
template <Mode mode, Way way, std::size_t N>
ZX_TARGET_AES [[gnu::always_inline]] inline void groups(Work& work, Block& chain) {
    for (; work.blocks >= N; work.blocks -= N) {
        group<mode, way, N>(work, chain);
        work.in += N * kBlockSize;
        work.out += N * kBlockSize;
    }
    if constexpr (N > 1) {
        groups<mode, way, N / 2>(work, chain);
    }
}

struct ByInstructions {
    template <Mode mode, Way way>
    ZX_TARGET_AES static void run(Work work) {
        if constexpr (mode == Mode::ecb) {
            Block none;
            groups<mode, way, kTogether>(work, none);
        } else {
            Block chain = load(work.iv);
            groups<mode, way, way == Way::encrypt ? 1 : kTogether>(work, chain);
            store(work.iv, 0, chain);
        }
    }
};

ZX_TARGET_AES std::uint32_t substitute(std::uint32_t word) {
    return substituted(word);
}

ZX_TARGET_AES void unmix(std::uint32_t* words, std::size_t count) {
    for (std::size_t i = 0; i < count / kBlockWords; ++i) {
        store(words, i, unmixed(load(words, i)));
    }
}

}  // namespace

constexpr Cipher zx::aes::kByInstructions = {crypt_by<ByInstructions>, substitute, unmix};
#endif
