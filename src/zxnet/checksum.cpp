#include "zxnet.h"

#include <arpa/inet.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "internal/bytes.hpp"
#include "internal/cpu.hpp"
#include "zxnet/checksum.hpp"
#include "zxnet/checksum_sum.hpp"
#include "zxnet/messages.hpp"

namespace {

using zx::net::fold;
using zx::net::kNoChecksum;

constexpr std::size_t kPseudoHeaderSize = 12;
constexpr std::uint32_t kPiece = 1U << 16U;  // bytes; their sum is far below 2^32

// Where the first and the second byte of a word are in the number that is loaded.
constexpr unsigned kFirst = std::endian::native == std::endian::big ? 8 : 0;
constexpr unsigned kSecond = 8 - kFirst;

std::uint32_t sum_blocks_portable(const std::uint8_t* at, std::size_t blocks) {
    return zx::net::sum_blocks_inline(at, blocks);
}

constexpr zx::Choice<zx::net::SumBlocks*> kSums[] = {
#if defined __x86_64__
    {zx::kAvx2, 0, zx::net::sum_blocks_avx2},
#elif defined __aarch64__
    {zx::kNeon, 0, zx::net::sum_blocks_neon},
#endif
    {zx::kPortable, 0, sum_blocks_portable},
};

std::uint32_t sum_blocks(const std::uint8_t* at, std::size_t blocks) {
    return zx::pick(kSums)(at, blocks);
}

template <typename T>
T load(const std::uint8_t* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// Sums less than a block. The words are added in the two halves of a 64-bit number, which cannot
// overflow.
[[gnu::always_inline]] inline std::uint32_t sum_rest(const std::uint8_t* at, std::size_t size) {
    constexpr std::uint64_t kLower = 0x0000FFFF0000FFFF;
    const auto halves = [](std::uint64_t words) {
        return (words & kLower) + (words >> 16U & kLower);
    };
    std::uint64_t sum = 0;
    if ((size & 32U) != 0) {
        sum += halves(load<std::uint64_t>(at)) + halves(load<std::uint64_t>(at + 8)) +
               halves(load<std::uint64_t>(at + 16)) + halves(load<std::uint64_t>(at + 24));
        at += 32;
    }
    if ((size & 16U) != 0) {
        sum += halves(load<std::uint64_t>(at)) + halves(load<std::uint64_t>(at + 8));
        at += 16;
    }
    if ((size & 8U) != 0) {
        sum += halves(load<std::uint64_t>(at));
        at += 8;
    }
    if ((size & 4U) != 0) {
        sum += halves(load<std::uint32_t>(at));
        at += 4;
    }
    if ((size & 2U) != 0) {
        sum += load<std::uint16_t>(at);
        at += 2;
    }
    if ((size & 1U) != 0) {
        sum += std::uint32_t{*at} << kFirst;
    }
    return static_cast<std::uint32_t>(sum + (sum >> 32U));
}

// Not inlined, because most buffers are short, and their code is then short, too.
[[gnu::noinline]] std::uint32_t sum_long(const std::uint8_t* at, std::size_t size) {
    const std::size_t rest = size % zx::net::kSumBlock;
    return sum_blocks(at, size / zx::net::kSumBlock) + sum_rest(at + (size - rest), rest);
}

[[gnu::always_inline]] inline std::uint32_t sum_of(const std::uint8_t* at, std::size_t size) {
    return size < zx::net::kSumBlock ? sum_rest(at, size) : sum_long(at, size);
}

// The checksum in host order. The words that were added were in network order.
std::uint16_t checksum_of(std::uint32_t sum) {
    return ntohs(static_cast<std::uint16_t>(~fold(fold(sum))));
}

}  // namespace

std::uint16_t zx::net::pseudo_checksum(const std::uint8_t* header, std::uint32_t src,
                                       std::uint32_t dst, std::uint8_t protocol,
                                       std::uint8_t header_len, const std::uint8_t* data,
                                       std::uint16_t data_len) {
    std::uint8_t pseudo[kPseudoHeaderSize]{};
    store_be32(pseudo, src);
    store_be32(pseudo + 4, dst);
    pseudo[9] = protocol;
    store_be16(pseudo + 10, static_cast<std::uint16_t>(header_len + data_len));
    std::uint32_t sum = sum_of(pseudo, sizeof pseudo) + sum_of(header, header_len);

    std::size_t size = data_len;
    if (header_len % 2 != 0 && size != 0) {  // this byte completes the header's last word
        sum += std::uint32_t{*data} << kSecond;
        ++data;
        --size;
    }
    return checksum_of(sum + sum_of(data, size));
}

extern "C" uint16_t zxnet_api_checksum(const uint8_t* p, uint32_t len) {
    if (!ZX_ARE_GIVEN({p, "paddr"})) {
        return kNoChecksum;
    }
    return checksum_of(sum_of(p, len));
}

extern "C" uint16_t zxnet_api_checksumUdp(const uint16_t* p, uint32_t len) {
    const auto* at = reinterpret_cast<const std::uint8_t*>(p);
    std::uint32_t sum = 0;
    while (len >= zx::net::kSumBlock) {
        const std::uint32_t piece = std::min(len, kPiece);
        const std::uint32_t whole = piece - piece % zx::net::kSumBlock;
        sum = fold(fold(sum + sum_blocks(at, whole / zx::net::kSumBlock)));
        at += whole;
        len -= whole;
    }
    for (; len != 0; len -= 2, at += 2) {
        sum += load<std::uint16_t>(at);
    }
    return static_cast<std::uint16_t>(~fold(fold(sum)));
}

extern "C" uint16_t zxnet_api_checksum_ptc(const void* header, uint32_t src, uint32_t dst,
                                           uint8_t protocol, uint8_t headerLen, const void* data,
                                           uint16_t dataLen) {
    if (!ZX_ARE_GIVEN({header, "pether_pkt"})) {
        return kNoChecksum;
    }
    return zx::net::pseudo_checksum(static_cast<const std::uint8_t*>(header), src, dst, protocol,
                                    headerLen, static_cast<const std::uint8_t*>(data), dataLen);
}
