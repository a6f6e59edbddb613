// How far the headers of a frame can be trusted.
//
// The engine decodes any bytes. After the captured bytes it reads zeros, after a header with a
// wrong length it reads the wrong bytes, and its record keeps fields of earlier frames. So
// find_layers() decides, from the frame alone, which parts of a record may be shown.
#pragma once

#include <cstdint>

#include "frame.hpp"

namespace capture {

inline constexpr std::uint16_t kTypeIpv4 = 0x0800;
inline constexpr std::uint16_t kTypeArp = 0x0806;
inline constexpr std::uint16_t kTypeVlan = 0x8100;
inline constexpr std::uint16_t kTypeIpv6 = 0x86DD;
inline constexpr std::uint16_t kLargestLength = 1500;  // IEEE 802.3 has a length in place of a type
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;
inline constexpr std::uint8_t kProtocolIcmpV6 = 58;
inline constexpr std::size_t kIpv6HeaderSize = 40;

enum class Depth { none, ethernet, network, transport };

enum class Flaw {
    none,
    truncated,  // a header ends after the captured bytes
    malformed,  // a header contradicts the one around it
};

struct Layers {
    Depth depth = Depth::none;     // the innermost header that is present
    Flaw flaw = Flaw::none;        // in the next one, or in the TCP options
    std::uint16_t type = 0;        // EtherType
    std::uint8_t protocol = 0;     // of IPv4, or the next header of IPv6
    bool first_fragment = false;   // of several fragments
    bool later_fragment = false;   // has no transport header
    std::size_t transport_at = 0;  // from the start of the frame
    std::size_t payload_at = 0;    // from the start of the frame
    std::uint32_t payload = 0;     // bytes of the packet after the transport header
};

[[nodiscard]] Layers find_layers(const Frame& frame);

}  // namespace capture
