// The checksums of IP and of the layer above it.
#pragma once

#include "packet/packet.hpp"

namespace capture {

enum class Checksum : std::uint8_t {
    unknown,  // there is none, or not all that it covers was captured or is in this packet
    absent,   // a datagram of UDP over IPv4 may go without
    right,
    wrong,
};

// Of the header of IPv4.
[[nodiscard]] Checksum check_header(const Frame& frame, const Packet& packet);

// Of TCP, UDP, ICMP, ICMPv6 or IGMP.
[[nodiscard]] Checksum check_transport(const Frame& frame, const Packet& packet);

}  // namespace capture
