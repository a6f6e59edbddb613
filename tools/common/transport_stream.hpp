// The packets of a transport stream (ISO/IEC 13818-1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tools {

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::uint8_t kSyncByte = 0x47;

// The size of the whole packets at the front, which all begin with the sync byte.
[[nodiscard]] inline std::size_t packets_at_front(std::span<const std::uint8_t> bytes) {
    std::size_t size = 0;
    while (size + kPacketSize <= bytes.size() && bytes[size] == kSyncByte) {
        size += kPacketSize;
    }
    return size;
}

// True if the bytes are such packets and nothing else.
[[nodiscard]] inline bool is_transport_stream(std::span<const std::uint8_t> bytes) {
    return !bytes.empty() && packets_at_front(bytes) == bytes.size();
}

}  // namespace tools
