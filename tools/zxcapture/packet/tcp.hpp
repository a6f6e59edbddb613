// The header of TCP (RFC 9293) and its options.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "packet/packet.hpp"

namespace capture {

// The flags of TCP, as the bits of Tcp::flags.
enum TcpFlag : std::uint16_t {
    kFin = 0x001,
    kSyn = 0x002,
    kRst = 0x004,
    kPsh = 0x008,
    kAck = 0x010,
    kUrg = 0x020,
    kEce = 0x040,
    kCwr = 0x080,
    kNs = 0x100,  // RFC 3540; AE in later documents
};

struct Tcp {
    std::uint32_t sequence = 0;
    std::uint32_t acknowledgment = 0;
    std::uint16_t flags = 0;   // bits of TcpFlag
    std::uint16_t window = 0;  // not scaled
    std::uint16_t checksum = 0;
    std::uint16_t urgent = 0;
    [[nodiscard]] bool has(TcpFlag flag) const { return (flags & flag) != 0; }
};

// Reads the header; nothing if the packet has none.
[[nodiscard]] std::optional<Tcp> read_tcp(const Frame& frame, const Packet& packet);

inline constexpr std::size_t kMostSacks = 4;  // that the largest header can hold

struct TcpOptions {
    std::optional<std::uint16_t> segment_size;  // the largest that the sender accepts
    std::optional<std::uint8_t> window_shift;
    bool sack_permitted = false;
    struct Range {  // bytes that have arrived: from `left` to before `right`
        std::uint32_t left = 0;
        std::uint32_t right = 0;
    };
    std::array<Range, kMostSacks> sacks{};
    std::uint8_t sack_count = 0;
    struct Timestamps {
        std::uint32_t value = 0;
        std::uint32_t echo = 0;
    };
    std::optional<Timestamps> timestamps;
    bool is_malformed = false;  // the length of an option is impossible
};

// Reads the options that were captured; none if the packet has no header of TCP. Options of other
// kinds are left out. Of a kind that appears twice, the last holds.
[[nodiscard]] TcpOptions read_tcp_options(const Frame& frame, const Packet& packet);

}  // namespace capture
