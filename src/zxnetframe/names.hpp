// The names of EtherTypes and IP protocols.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "zxnetframe/wire.hpp"

namespace zx::frame {

// A name, filled up with zeros so that it can be copied in one piece.
struct Name {
    constexpr Name() = default;
    constexpr Name(const char* literal) {  // NOLINT(google-explicit-constructor): rows of tables
        for (std::size_t i = 0; literal[i] != '\0'; ++i) {
            text[i] = literal[i];
        }
    }
    [[nodiscard]] constexpr bool empty() const { return text[0] == '\0'; }

    char text[32]{};
};

struct EtherType {
    std::uint16_t value;
    Name name;
    const char* unsupported_prefix = "";  // before the name when a frame is not decoded
};

inline constexpr std::array<EtherType, 36> kEtherTypes{{
    {0x0200, "Xerox PUP", " "},  // this one and the next count as lengths
    {0x0500, "Sprite", " "},
    {0x0600, "XEROX NS IDP"},
    {0x0661, "DLOG"},
    {0x0800, "IPv4"},
    {0x0801, "X.75 Internet"},
    {0x0802, "NBS Internet"},
    {0x0803, "ECMA Internet"},
    {0x0804, "Chaosnet"},
    {0x0805, "X.25 Level 3"},
    {0x0806, "ARP"},
    {0x0808, "Frame Relay ARP"},
    {0x6559, "Raw Frame Relay"},
    {0x8035, "DRARP"},
    {0x8037, "Novell Netware IPX"},
    {0x809B, "AppleTalk protocol "},
    {0x80D5, "IBM SNA Services over Ethernet"},
    {0x80F3, "AppleTalk ARP"},
    {0x8100, "IEEE 802.1Q VLAN tagging"},
    {0x8137, "IPX"},
    {0x814C, "SNMP"},
    {0x86DD, "IPv6"},
    {0x8809, "OAM"},
    {0x880B, "PPP"},
    {0x880C, "GSMP"},
    {0x8847, "MPLS <unicast>"},
    {0x8848, "MPLS<multicast>"},
    {0x8863, "PPPoE <Discovery Stage>"},
    {0x8864, "PPPoE <PPP Session Stage>"},
    {0x88BB, "LWAPP"},
    {0x88CC, "LLDP"},
    {0x8E88, "EAPOL"},  // deliberate: the registered value is 0x888E
    {0x9000, "used to test interfaces"},
    {0x9100, "VLAN Tag Protocol Identifier1"},
    {0x9200, "VLAN Tag Protocol Identifier2"},
    {0xFFFF, "res"},
}};
static_assert(std::ranges::is_sorted(kEtherTypes, {}, &EtherType::value));

[[nodiscard]] constexpr const EtherType* find_ether_type(std::uint16_t value) {
    constexpr const EtherType* kIpv4 = &kEtherTypes[4];  // nearly every frame
    static_assert(kIpv4->value == kEtherTypeIpv4);
    if (value == kIpv4->value) {
        return kIpv4;
    }
    const auto* const row = std::ranges::lower_bound(kEtherTypes, value, {}, &EtherType::value);
    return row != kEtherTypes.end() && row->value == value ? row : nullptr;
}

// By number; empty when there is no name.
inline constexpr std::array<Name, 256> kIpProtocols = [] {
    std::array<Name, 256> names{};
    names[0] = "Dummy protocol for TCP";
    names[1] = "ICMP";
    names[2] = "IGMP";
    names[4] = "IPIP tunnels";
    names[6] = "TCP";
    names[8] = "EGP";
    names[12] = "PUP";
    names[17] = "UDP";
    names[22] = "IDP";
    names[29] = "TP";
    names[33] = "DCCP";
    names[41] = "IPV6";
    names[46] = "RSVP";
    names[47] = "GRE ";
    names[50] = "ESP ";
    names[51] = "AH ";
    names[92] = "MTP";
    names[94] = "BEETPH ";
    names[98] = "ENCAP ";
    names[103] = "PIM ";
    names[108] = "COMP";
    names[132] = "SCTP ";
    names[136] = "UDPLITE ";
    names[137] = "MPLS ";
    return names;
}();

}  // namespace zx::frame
