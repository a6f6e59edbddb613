// The header of RTP (RFC 3550).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "common/big_endian.hpp"

namespace tools {

struct Rtp {
    bool marker = false;
    std::uint8_t payload_type = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t sender = 0;               // the synchronization source
    std::span<const std::uint8_t> payload;  // without padding
};

// Reads a datagram. `missing` bytes of it, at its end, were not captured: then the padding is not
// known, and the payload is what is left. Returns nothing if the version is not 2, or the lengths
// in the header do not fit the datagram.
[[nodiscard]] inline std::optional<Rtp> parse_rtp(std::span<const std::uint8_t> datagram,
                                                  std::size_t missing = 0) {
    constexpr std::size_t kFixed = 12;
    constexpr std::size_t kWord = 4;
    if (datagram.size() < kFixed || datagram[0] >> 6U != 2) {
        return std::nullopt;
    }
    const bool is_padded = (datagram[0] & 0x20U) != 0;
    const bool is_extended = (datagram[0] & 0x10U) != 0;
    const std::size_t contributors = datagram[0] & 0x0fU;
    std::size_t size = kFixed + contributors * kWord;
    if (is_extended) {  // two bytes of any meaning, and the length in words
        if (datagram.size() < size + kWord) {
            return std::nullopt;
        }
        size += kWord + load_be16(&datagram[size + 2]) * kWord;
    }
    // The last byte of the padding is its size.
    const std::size_t padding = is_padded && missing == 0 ? datagram.back() : 0;
    const bool is_size_bad = is_padded && missing == 0 && padding == 0;
    if (is_size_bad || size + padding > datagram.size()) {
        return std::nullopt;
    }
    return Rtp{.marker = (datagram[1] & 0x80U) != 0,
               .payload_type = static_cast<std::uint8_t>(datagram[1] & 0x7fU),
               .sequence = load_be16(&datagram[2]),
               .timestamp = load_be32(&datagram[4]),
               .sender = load_be32(&datagram[8]),
               .payload = datagram.subspan(size, datagram.size() - size - padding)};
}

}  // namespace tools
