// The header of ICMP (RFC 792) and of ICMPv6 (RFC 4443, 4861).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "packet/packet.hpp"

namespace capture {

struct Icmp {
    std::uint8_t type = 0;
    std::uint8_t code = 0;
    std::string_view name;    // of the type; empty if it is not known
    std::string_view reason;  // why a destination is unreachable: the name of the code
    struct Echo {
        std::uint16_t id = 0;
        std::uint16_t sequence = 0;
    };
    std::optional<Echo> echo;                     // of echo requests and replies
    std::optional<Address> target;                // of neighbour discovery and of redirects
    std::optional<std::uint32_t> largest_packet;  // that passes, if one was too big
};

// Reads the header; nothing if the packet has none. What follows the first four bytes is left out
// when it was not captured.
[[nodiscard]] std::optional<Icmp> read_icmp(const Frame& frame, const Packet& packet);

}  // namespace capture
