// Writing headers as bytes.
#pragma once

#include <cstring>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/wire.hpp"

namespace zx::frame {

inline void write_ethernet(const ether_ctt& record, std::uint8_t* out) {
    std::memcpy(out + ether_at::dest, record.dest_mac, sizeof record.dest_mac);
    std::memcpy(out + ether_at::source, record.source_mac, sizeof record.source_mac);
    store_be16(out + ether_at::type, record.ether_type);
}

// Writes a header without options. The addresses of the view are in host order here.
inline void write_ipv4(const ipv4_view& ip, std::uint8_t* out) {
    out[ipv4_at::version] = static_cast<std::uint8_t>(ip.version << 4U | ip.header_len);
    out[ipv4_at::tos] = ip.tos;
    store_be16(out + ipv4_at::total_len, ip.total_len);
    store_be16(out + ipv4_at::id, ip.id);
    store_be16(out + ipv4_at::fragment,
               static_cast<std::uint16_t>(ip.flags << kFragmentFlagsShift | ip.frag_off));
    out[ipv4_at::ttl] = ip.ttl;
    out[ipv4_at::protocol] = ip.protocol;
    store_be16(out + ipv4_at::check, ip.check);
    store_be32(out + ipv4_at::saddr, ip.saddr);
    store_be32(out + ipv4_at::daddr, ip.daddr);
}

// Writes a header without options and without the two reserved flags.
inline void write_tcp(const tcp_view& tcp, std::uint8_t* out) {
    store_be16(out + tcp_at::source, tcp.source);
    store_be16(out + tcp_at::dest, tcp.dest);
    store_be32(out + tcp_at::seq, tcp.seq);
    store_be32(out + tcp_at::ack_seq, tcp.ack_seq);
    out[tcp_at::offset] = static_cast<std::uint8_t>(tcp.doff << 4U);
    out[tcp_at::flags] = static_cast<std::uint8_t>(
        (tcp.urg != 0 ? tcp_at::urg : 0) | (tcp.ack != 0 ? tcp_at::ack : 0) |
        (tcp.psh != 0 ? tcp_at::psh : 0) | (tcp.rst != 0 ? tcp_at::rst : 0) |
        (tcp.syn != 0 ? tcp_at::syn : 0) | (tcp.fin != 0 ? tcp_at::fin : 0));
    store_be16(out + tcp_at::window, tcp.window);
    store_be16(out + tcp_at::check, tcp.check);
    store_be16(out + tcp_at::urg_ptr, tcp.urg_ptr);
}

inline void write_udp(const udp_view& udp, std::uint8_t* out) {
    store_be16(out + udp_at::source, udp.source);
    store_be16(out + udp_at::dest, udp.dest);
    store_be16(out + udp_at::len, udp.len);
    store_be16(out + udp_at::check, udp.check);
}

}  // namespace zx::frame
