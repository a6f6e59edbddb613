// What all Internet checksums share.
#pragma once

#include <cstdint>

namespace zx::net {

inline constexpr std::uint16_t kNoChecksum = 0xFFFF;  // the result without data

// Adds the carries of a sum of 16-bit words to it. That may give another carry.
constexpr std::uint32_t fold(std::uint32_t sum) {
    return (sum >> 16U) + (sum & 0xFFFFU);
}

}  // namespace zx::net
