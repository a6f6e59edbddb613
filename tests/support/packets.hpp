// Transport stream packets that carry their number.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "stream/queue.hpp"

namespace zx::test {

inline std::vector<std::uint8_t> packets(std::uint64_t first, std::uint64_t count) {
    std::vector<std::uint8_t> bytes(count * relay::kPacketSize);
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint8_t* const packet = bytes.data() + i * relay::kPacketSize;
        const std::uint64_t number = first + i;
        std::memset(packet, static_cast<int>(number % 251), relay::kPacketSize);
        packet[0] = 0x47;
        std::memcpy(packet + 4, &number, sizeof number);
    }
    return bytes;
}

inline std::uint64_t number_at(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    std::uint64_t number;
    std::memcpy(&number, bytes.data() + at + 4, sizeof number);
    return number;
}

}  // namespace zx::test
