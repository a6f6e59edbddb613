// Whole TCP and UDP frames.
#include <arpa/inet.h>

#include <cstring>
#include <utility>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnet.h"
#include "zxnet/checksum.hpp"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint16_t kIdStep = 300;
constexpr std::uint16_t kWindow = 65535;
constexpr std::uint32_t kMaxPacket = 65535;
constexpr std::size_t kIpv4Size = kIpv4Words * kWord;
constexpr std::size_t kTcpSize = kTcpWords * kWord;

bool ends(const char (&text)[ZXFRAME_NAME_SIZE]) {
    return std::memchr(text, '\0', sizeof text) != nullptr;
}

const char* endless_text(const ether_pkt& request) {
    return !ends(request.str_dest_mac)     ? "str_dest_mac"
           : !ends(request.str_source_mac) ? "str_source_mac"
           : !ends(request.source_ip)      ? "source_ip"
           : !ends(request.dest_ip)        ? "dest_ip"
                                           : nullptr;
}

// Sets what is the same in every segment that is made from the record alone.
void prepare_segment(ether_ctt& record) {
    record.ether_type = kEtherTypeIpv4;

    ipv4_view& ip = record.ipv4;
    ip.version = 4;
    ip.header_len = kIpv4Words;
    ip.tos = 0;
    ip.id = static_cast<std::uint16_t>(ip.id + kIdStep);
    ip.flags = kDontFragment;
    ip.protocol = kProtocolTcp;
    ip.check = 0;
    ip.saddr = htonl(ip.saddr);
    ip.daddr = htonl(ip.daddr);
    ip.total_len = static_cast<std::uint16_t>(kIpv4Size + kTcpSize + record.data_len);

    tcp_view& tcp = record.tcp;
    tcp.doff = kTcpWords;
    tcp.window = kWindow;
    tcp.check = 0;
    tcp.urg_ptr = 0;
}

// Writes the checksums into the frame only, not into the record.
void write_segment(const ether_ctt& record, std::uint8_t* out) {
    std::uint8_t* const ip = out + ether_at::payload;
    std::uint8_t* const tcp = ip + kIpv4Size;
    write_ethernet(record, out);
    write_ipv4(record.ipv4, ip);
    zx::store_be16(ip + ipv4_at::check, zxnet_api_checksum(ip, kIpv4Size));
    write_tcp(record.tcp, tcp);
    tcp[tcp_at::flags] = static_cast<std::uint8_t>(
        tcp[tcp_at::flags] | record.tcp.reserved_flags << tcp_at::reserved_shift);
    zx::store_be16(tcp + tcp_at::check, tcp_checksum(record, tcp));
}

}  // namespace

extern "C" int32_t zxframe_api_buildTcp(ether_ctt* pether_ctt, const zxbuildtcp_ctt* pether_pkt,
                                        uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {pether_pkt, "pether_pkt"}, {outbuf, "outbuf"})) {
        return -1;
    }
    const zxbuildtcp_ctt& request = *pether_pkt;
    if (!ZX_ARE_GIVEN({request.str_dest_mac, "str_dest_mac"},
                      {request.str_source_mac, "str_source_mac"}, {request.source_ip, "source_ip"},
                      {request.dest_ip, "dest_ip"})) {
        return -1;
    }
    ether_ctt& record = *pether_ctt;
    build_ethernet(record, request.str_dest_mac, request.str_source_mac, kEtherTypeIpv4, outbuf);
    build_ipv4(record, kProtocolTcp, request.source_ip, request.dest_ip, request.option_len,
               outbuf + ether_at::payload);
    const std::size_t offset = ether_at::payload + kWord * record.ipv4.header_len;
    build_tcp(record, request, outbuf + offset);
    return static_cast<int32_t>(offset + kWord * record.tcp.doff + record.data_len);
}

extern "C" int32_t zxframe_api_finishTcp(uint8_t* frame, const uint8_t* payload,
                                         uint32_t payload_len) {
    if (!ZX_ARE_GIVEN({frame, "frame"}) ||
        (payload_len != 0 && !ZX_ARE_GIVEN({payload, "payload"}))) {
        return -1;
    }
    std::uint8_t* const ip = frame + ether_at::payload;
    const std::uint32_t ip_size = kWord * (ip[ipv4_at::version] & kNibble);
    std::uint8_t* const tcp = ip + ip_size;
    const bool is_tcp = zx::load_be16(frame + ether_at::type) == kEtherTypeIpv4 &&
                        ip[ipv4_at::version] >> 4U == 4 && ip[ipv4_at::protocol] == kProtocolTcp &&
                        ip_size >= kIpv4Size;
    const std::uint32_t tcp_size = is_tcp ? kWord * (tcp[tcp_at::offset] >> 4U) : 0;
    if (tcp_size < kTcpSize) {
        ZX_LOG_PARAM("frame");
        return -1;
    }
    const std::uint32_t headers = ip_size + tcp_size;
    if (payload_len > kMaxPacket - headers) {
        ZX_LOG(error, "A payload of %u bytes does not fit into an IPv4 packet", payload_len);
        return -1;
    }
    if (payload_len != 0) {
        std::memmove(tcp + tcp_size, payload, payload_len);
    }
    zx::store_be16(ip + ipv4_at::total_len, static_cast<std::uint16_t>(headers + payload_len));
    zx::store_be16(ip + ipv4_at::check, 0);
    zx::store_be16(ip + ipv4_at::check, zxnet_api_checksum(ip, ip_size));
    zx::store_be16(tcp + tcp_at::check, 0);
    zx::store_be16(tcp + tcp_at::check,
                   zx::net::pseudo_checksum(tcp, zx::load_be32(ip + ipv4_at::saddr),
                                            zx::load_be32(ip + ipv4_at::daddr), kProtocolTcp,
                                            static_cast<std::uint8_t>(tcp_size), tcp + tcp_size,
                                            static_cast<std::uint16_t>(payload_len)));
    return static_cast<int32_t>(ether_at::payload + headers + payload_len);
}

extern "C" int32_t zxframe_api_buildUdp(ether_ctt* pether_ctt, const ether_pkt* pether_pkt,
                                        uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {pether_pkt, "pether_pkt"}, {outbuf, "outbuf"})) {
        return -1;
    }
    const ether_pkt& request = *pether_pkt;
    if (const char* const endless = endless_text(request)) {
        ZX_LOG_PARAM(endless);
        return -1;
    }
    ether_ctt& record = *pether_ctt;
    build_ethernet(record, request.str_dest_mac, request.str_source_mac, kEtherTypeIpv4, outbuf);
    build_ipv4(record, kProtocolUdp, request.source_ip, request.dest_ip, 0,
               outbuf + ether_at::payload);
    const std::size_t offset = ether_at::payload + kWord * record.ipv4.header_len;
    build_udp(record, request, outbuf + offset);
    // Deliberate: the header length of a TCP frame that the record held before counts, too.
    constexpr std::uint32_t kUdpWords = 2;
    return static_cast<int32_t>(offset + (record.tcp.doff + kUdpWords) * kWord + record.data_len);
}

extern "C" int32_t zxframe_api_buildTcpAck(ether_ctt* pether_ctt, uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {outbuf, "pether_pkt"})) {
        return -1;
    }
    const std::uint16_t received = std::exchange(pether_ctt->data_len, std::uint16_t{0});
    prepare_segment(*pether_ctt);
    std::swap(pether_ctt->dest_mac, pether_ctt->source_mac);
    std::swap(pether_ctt->ipv4.saddr, pether_ctt->ipv4.daddr);
    tcp_view& tcp = pether_ctt->tcp;
    std::swap(tcp.source, tcp.dest);
    std::swap(tcp.seq, tcp.ack_seq);
    tcp.ack_seq += received;
    tcp.ack = 1;
    tcp.urg = tcp.psh = tcp.rst = tcp.syn = tcp.fin = 0;
    write_segment(*pether_ctt, outbuf);
    return static_cast<int32_t>(ether_at::payload + kIpv4Size + kTcpSize);
}

extern "C" int32_t zxframe_api_buildTcpData(ether_ctt* pether_ctt, uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {outbuf, "pether_pkt"})) {
        return -1;
    }
    prepare_segment(*pether_ctt);
    write_segment(*pether_ctt, outbuf);
    return static_cast<int32_t>(ether_at::payload + kIpv4Size + kTcpSize + pether_ctt->data_len);
}
