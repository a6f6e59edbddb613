// The sum for the Internet checksums: the 16-bit words of a buffer in the byte order of the memory,
// added modulo 2^32.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zx::net {

// The bytes that each step adds.
inline constexpr std::uint32_t kSumBlock = 64;

using Lanes [[gnu::vector_size(kSumBlock / 2)]] = std::uint32_t;
inline constexpr std::size_t kLanes = sizeof(Lanes) / sizeof(std::uint32_t);

// This is inlined into functions for different processors. They differ in nothing else.
//
// Pairs of words are added without taking them apart, which saves a step for each pair. With P the
// sum of the pairs and U the sum of their upper words, the lower words add up to P - 2^16 U.
[[gnu::always_inline]] inline std::uint32_t sum_blocks_inline(const std::uint8_t* at,
                                                              std::size_t blocks) {
    Lanes pairs1{}, pairs2{}, uppers1{}, uppers2{};
    for (; blocks != 0; --blocks, at += kSumBlock) {
        Lanes in1, in2;
        std::memcpy(&in1, at, sizeof in1);
        std::memcpy(&in2, at + sizeof in1, sizeof in2);
        pairs1 += in1;
        pairs2 += in2;
        uppers1 += in1 >> 16U;
        uppers2 += in2 >> 16U;
    }
    pairs1 += pairs2;
    uppers1 += uppers2;
    std::uint32_t pair_sum = 0;
    std::uint32_t upper_sum = 0;
    for (std::size_t i = 0; i < kLanes; ++i) {
        pair_sum += pairs1[i];
        upper_sum += uppers1[i];
    }
    return pair_sum - (upper_sum << 16U) + upper_sum;
}

using SumBlocks = std::uint32_t(const std::uint8_t* at, std::size_t blocks);

#if defined __x86_64__
SumBlocks sum_blocks_avx2;
#elif defined __aarch64__
SumBlocks sum_blocks_neon;
#endif

}  // namespace zx::net
