// Where each header has its fields, and the numbers of the protocols.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zx::frame {

inline constexpr std::uint16_t kEtherTypeIpv4 = 0x0800;
inline constexpr std::uint16_t kEtherTypeArp = 0x0806;
inline constexpr std::uint16_t kEtherTypeIpv6 = 0x86DD;
inline constexpr std::uint16_t kMaxLength8023 = 1500;  // larger values are EtherTypes

inline constexpr std::uint8_t kProtocolIgmp = 2;
inline constexpr std::uint8_t kProtocolTcp = 6;
inline constexpr std::uint8_t kProtocolUdp = 17;

namespace ether_at {
inline constexpr std::size_t dest = 0, source = 6, type = 12, payload = 14;
}

namespace ipv4_at {
inline constexpr std::size_t version = 0, tos = 1, total_len = 2, id = 4, fragment = 6, ttl = 8,
                             protocol = 9, check = 10, saddr = 12, daddr = 16, router_alert = 20;
}

namespace arp_at {
inline constexpr std::size_t hardware_type = 0, protocol_type = 2, hardware_len = 4,
                             protocol_len = 5, operation = 6, sender_mac = 8, sender_ip = 14,
                             target_mac = 18, target_ip = 24, end = 28;
}

namespace tcp_at {
inline constexpr std::size_t source = 0, dest = 2, seq = 4, ack_seq = 8, offset = 12, flags = 13,
                             window = 14, check = 16, urg_ptr = 18, options = 20;
inline constexpr unsigned fin = 0x01, syn = 0x02, rst = 0x04, psh = 0x08, ack = 0x10, urg = 0x20,
                          reserved_shift = 6;
}  // namespace tcp_at

namespace udp_at {
inline constexpr std::size_t source = 0, dest = 2, len = 4, check = 6, payload = 8;
}

namespace igmp_at {
inline constexpr std::size_t type = 0, code = 1, check = 2;
inline constexpr std::size_t group = 4, short_end = 8;  // versions 1 and 2, queries
inline constexpr std::size_t reserved = 4, group_records = 6, record_type = 8, aux_len = 9,
                             source_count = 10, record_group = 12, sources = 16;
}  // namespace igmp_at

inline constexpr std::uint32_t kFragmentOffsetMask = 0x1FFF;
inline constexpr unsigned kFragmentFlagsShift = 13;
inline constexpr std::uint32_t kDontFragment = 2;

// Header lengths count words of 32 bits and have four bits.
inline constexpr std::size_t kWord = 4;
inline constexpr std::uint32_t kNibble = 0xF;
inline constexpr std::uint32_t kIpv4Words = 5;
inline constexpr std::uint32_t kTcpWords = 5;

}  // namespace zx::frame
