// What all Internet checksums share.
#pragma once

#include <cstdint>

namespace zx::net {

inline constexpr std::uint16_t kNoChecksum = 0xFFFF;  // the result without data

// Adds the carries of a sum of 16-bit words to it. That may give another carry.
constexpr std::uint32_t fold(std::uint32_t sum) {
    return (sum >> 16U) + (sum & 0xFFFFU);
}

// What zxnet_api_checksum_ptc() calculates, for a header that is given.
[[nodiscard]] std::uint16_t pseudo_checksum(const std::uint8_t* header, std::uint32_t src,
                                            std::uint32_t dst, std::uint8_t protocol,
                                            std::uint8_t header_len, const std::uint8_t* data,
                                            std::uint16_t data_len);

}  // namespace zx::net
