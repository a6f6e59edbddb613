// A frame taken apart: which headers it has, where they are, and how far they can be trusted.
//
// The frame engine, zxframe, decodes any bytes and shows all their fields. This decides, from the
// frame alone, which headers are there. It knows more of them, and it does not format anything.
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>

#include "source/frame.hpp"

namespace capture {

inline constexpr std::uint16_t kTypeNone = 0;  // the link says nothing that is known here
inline constexpr std::uint16_t kTypeIpv4 = 0x0800;
inline constexpr std::uint16_t kTypeArp = 0x0806;
inline constexpr std::uint16_t kTypeVlan = 0x8100;         // IEEE 802.1Q
inline constexpr std::uint16_t kTypeServiceVlan = 0x88A8;  // IEEE 802.1ad
inline constexpr std::uint16_t kTypeOldServiceVlan = 0x9100;
inline constexpr std::uint16_t kTypeIpv6 = 0x86DD;
inline constexpr std::uint16_t kLargestLength = 1500;
inline constexpr std::uint8_t kProtocolIcmp = 1;
inline constexpr std::uint8_t kProtocolIgmp = 2;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;
inline constexpr std::uint8_t kProtocolIcmpV6 = 58;

enum class Depth : std::uint8_t { none, link, network, transport };

enum class Flaw : std::uint8_t {
    none,
    truncated,  // a header ends after the captured bytes, and before the end of the frame
    malformed,  // a header contradicts the one around it, or ends after the frame
};

enum class Network : std::uint8_t { none, arp, ipv4, ipv6 };

enum class Transport : std::uint8_t { none, tcp, udp, icmp, icmpv6, igmp };

// An IPv4 or IPv6 address in the order of the network. An IPv4 address has zeros after it.
struct Address {
    std::array<std::uint8_t, 16> bytes{};
    bool is_ipv6 = false;
    [[nodiscard]] std::size_t size() const { return is_ipv6 ? 16 : 4; }
    auto operator<=>(const Address&) const = default;
};

// The address in the bytes at `at`.
[[nodiscard]] inline Address address_at(const std::uint8_t* at, bool is_ipv6) {
    Address address;
    address.is_ipv6 = is_ipv6;
    std::copy_n(at, address.size(), address.bytes.begin());
    return address;
}

// A VLAN tag. All lengths and numbers of this file are in the order of this machine.
struct Tag {
    std::uint16_t type = 0;  // of the tag itself
    std::uint16_t control = 0;
    [[nodiscard]] unsigned vlan() const { return control & 0xFFFU; }
    [[nodiscard]] unsigned priority() const { return control >> 13U; }
    [[nodiscard]] bool may_drop() const { return (control & 0x1000U) != 0; }
};

inline constexpr std::size_t kMostTags = 8;         // more are malformed
inline constexpr std::size_t kMostExtensions = 16;  // IPv6 extension headers; more are malformed

// Places count from the start of the frame. What a depth or a kind does not have is 0.
struct Packet {
    Depth depth = Depth::none;  // the innermost header that is present
    Flaw flaw = Flaw::none;     // in the next one, or in a length; flaw_of() looks deeper
    Network network = Network::none;
    Transport transport = Transport::none;

    bool has_macs = false;  // of Ethernet: at 0 the destination, at 6 the source
    std::uint8_t tag_count = 0;
    std::array<Tag, kMostTags> tags{};  // the outermost first
    std::uint16_t type = kTypeNone;     // EtherType after the tags; or a length, see has_length()

    std::uint8_t protocol = 0;  // of IPv4, or after the extension headers of IPv6
    std::uint8_t hops = 0;      // the time to live, or the hop limit
    bool dont_fragment = false;
    bool more_fragments = false;
    bool first_fragment = false;        // of several fragments
    bool later_fragment = false;        // has no transport header
    bool is_routed = false;             // has a routing header of IPv6, and is on its way
    std::uint32_t fragment_id = 0;      // of IPv4 also without fragments
    std::uint32_t fragment_offset = 0;  // in bytes
    Address source;                     // of IP
    Address dest;

    std::uint32_t network_at = 0;
    std::uint32_t network_end = 0;   // where the packet ends, as its header says
    std::uint32_t transport_at = 0;  // after all headers of IP
    std::uint16_t source_port = 0;
    std::uint16_t dest_port = 0;
    std::uint32_t payload_at = 0;
    std::uint32_t payload = 0;  // bytes of the packet after its TCP or UDP header

    // IEEE 802.3 has a length in place of a type.
    [[nodiscard]] bool has_length() const { return has_macs && type <= kLargestLength; }
    [[nodiscard]] bool has_ip() const {
        return network == Network::ipv4 || network == Network::ipv6;
    }
    [[nodiscard]] bool has_ports() const {
        return depth == Depth::transport &&
               (transport == Transport::tcp || transport == Transport::udp);
    }
};

[[nodiscard]] Packet dissect(const Frame& frame);

// The captured bytes from `at` on, at most `size`.
[[nodiscard]] inline std::span<const std::uint8_t> bytes_at(const Frame& frame, std::size_t at,
                                                            std::size_t size) {
    return at < frame.bytes.size()
               ? frame.bytes.subspan(
                     at, size < frame.bytes.size() - at ? size : frame.bytes.size() - at)
               : std::span<const std::uint8_t>();
}

// What was captured of the TCP or UDP payload.
[[nodiscard]] inline std::span<const std::uint8_t> captured_payload(const Frame& frame,
                                                                    const Packet& packet) {
    return bytes_at(frame, packet.payload_at, packet.payload);
}

// What was captured of the transport layer, from its header to the end of the packet.
[[nodiscard]] inline std::span<const std::uint8_t> captured_transport(const Frame& frame,
                                                                      const Packet& packet) {
    return packet.depth == Depth::transport
               ? bytes_at(frame, packet.transport_at, packet.network_end - packet.transport_at)
               : std::span<const std::uint8_t>();
}

}  // namespace capture
