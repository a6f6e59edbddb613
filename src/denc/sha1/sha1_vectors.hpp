// Adding four words of SHA-1 in a register.
#pragma once

#ifdef __x86_64__

#include <immintrin.h>

#include <cstdint>

namespace zx::sha1 {

using FourWords [[gnu::vector_size(sizeof(__m128i))]] = std::uint32_t;

[[gnu::always_inline]] inline __m128i add(__m128i a, __m128i b) {
    return reinterpret_cast<__m128i>(reinterpret_cast<FourWords>(a) +
                                     reinterpret_cast<FourWords>(b));
}

}  // namespace zx::sha1

#endif
