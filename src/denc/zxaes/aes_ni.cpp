// AES by the processor's own instructions. Where no block needs the result of another, eight are
// worked on at once: their states and a round key fit into the registers.
#ifdef __x86_64__
#include <immintrin.h>

#include "denc/zxaes/cipher.hpp"

#define ZX_AES_NI [[gnu::target("aes,ssse3,sse4.1")]]

namespace {

using namespace zx::aes;

ZX_AES_NI inline __m128i load(const void* at, std::size_t index = 0) {
    return _mm_loadu_si128(static_cast<const __m128i*>(at) + index);
}

ZX_AES_NI inline void store(void* at, std::size_t index, __m128i block) {
    _mm_storeu_si128(static_cast<__m128i*>(at) + index, block);
}

// Does all rounds. The caller has added the first round key.
template <Way way, std::size_t N>
ZX_AES_NI [[gnu::always_inline]] inline void transform(const Work& work, __m128i (&state)[N]) {
    __m128i key;
    for (unsigned round = 1; round < work.rounds; ++round) {
        key = load(work.keys, round);
        for (__m128i& block : state) {
            block =
                way == Way::encrypt ? _mm_aesenc_si128(block, key) : _mm_aesdec_si128(block, key);
        }
    }
    key = load(work.keys, work.rounds);
    for (__m128i& block : state) {
        block = way == Way::encrypt ? _mm_aesenclast_si128(block, key)
                                    : _mm_aesdeclast_si128(block, key);
    }
}

// Does the next N blocks. All of them are read before the first is written, because `in` and `out`
// may be the same.
template <Mode mode, Way way, std::size_t N>
ZX_AES_NI [[gnu::always_inline]] inline void group(const Work& work, __m128i& chain) {
    constexpr bool chained = mode != Mode::ecb && way == Way::encrypt;
    static_assert(N == 1 || !chained);
    const __m128i key = load(work.keys);
    __m128i state[N];
    for (std::size_t i = 0; i < N; ++i) {
        if constexpr (mode == Mode::cfb) {
            state[i] = _mm_xor_si128(i == 0 ? chain : load(work.in, i - 1), key);
        } else {
            state[i] = _mm_xor_si128(load(work.in, i), key);
        }
    }
    if constexpr (mode == Mode::cbc && chained) {  // done last, because the chain is ready last
        state[0] = _mm_xor_si128(state[0], chain);
    }
    transform<mode == Mode::cfb ? Way::decrypt : way>(work, state);
    for (std::size_t i = 0; i < N; ++i) {
        if constexpr (mode == Mode::cfb) {
            state[i] = _mm_xor_si128(state[i], load(work.in, i));
        } else if constexpr (mode == Mode::cbc && !chained) {
            state[i] = _mm_xor_si128(state[i], i == 0 ? chain : load(work.in, i - 1));
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
ZX_AES_NI [[gnu::always_inline]] inline void groups(Work& work, __m128i& chain) {
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
    ZX_AES_NI static void run(Work work) {
        if constexpr (mode == Mode::ecb) {
            __m128i none;
            groups<mode, way, kTogether>(work, none);
        } else {
            __m128i chain = load(work.iv);
            groups<mode, way, way == Way::encrypt ? 1 : kTogether>(work, chain);
            store(work.iv, 0, chain);
        }
    }
};

ZX_AES_NI std::uint32_t substitute(std::uint32_t word) {
    const __m128i words = _mm_set1_epi32(static_cast<int>(word));
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_aeskeygenassist_si128(words, 0)));
}

ZX_AES_NI void unmix(std::uint32_t* words, std::size_t count) {
    for (std::size_t i = 0; i < count / kBlockWords; ++i) {
        store(words, i, _mm_aesimc_si128(load(words, i)));
    }
}

}  // namespace

constexpr Cipher zx::aes::kByInstructions = {crypt_by<ByInstructions>, substitute, unmix};
#endif
