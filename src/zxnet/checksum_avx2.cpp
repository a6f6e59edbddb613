#include "zxnet/checksum_sum.hpp"

#ifdef __x86_64__
[[gnu::target("avx2")]] std::uint32_t zx::net::sum_blocks_avx2(const std::uint8_t* at,
                                                               std::size_t blocks) {
    return sum_blocks_inline(at, blocks);
}
#endif
