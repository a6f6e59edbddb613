// Whole TCP and UDP frames, and their checksums.
#include <algorithm>
#include <cstring>
#include <utility>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint16_t kIdStep = 300;
constexpr std::uint16_t kWindow = 65535;
constexpr std::uint16_t kNoChecksum = 65535;
constexpr std::uint32_t kMaxPacket = 65535;
constexpr std::size_t kIpv4Size = kIpv4Words * kWord;
constexpr std::size_t kTcpSize = kTcpWords * kWord;

const char* missing_text(const zxbuildtcp_ctt& request) {
    return request.str_dest_mac == nullptr     ? "str_dest_mac"
           : request.str_source_mac == nullptr ? "str_source_mac"
           : request.source_ip == nullptr      ? "source_ip"
           : request.dest_ip == nullptr        ? "dest_ip"
                                               : nullptr;
}

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

// Sums that exceed the record's storage would sum what lies behind it.
std::uint16_t payload_size(const ether_ctt& record) {
    return std::min<std::uint16_t>(record.data_len, ZXFRAME_DATA_SIZE);
}

// What every segment has that the record's owner sends without a request.
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

// The checksums go into the frame only.
void write_segment(const ether_ctt& record, std::uint8_t* out) {
    std::uint8_t* const ip = out + ether_at::payload;
    std::uint8_t* const tcp = ip + kIpv4Size;
    write_ethernet(record, out);
    write_ipv4(record.ipv4, ip);
    zx::store_be16(ip + ipv4_at::check, zxnet_api_checksum(ip, kIpv4Size));
    write_tcp(record.tcp, tcp);
    tcp[tcp_at::flags] = static_cast<std::uint8_t>(
        tcp[tcp_at::flags] | record.tcp.reserved_flags << tcp_at::reserved_shift);
    zx::store_be16(tcp + tcp_at::check, zxframe_api_tcpChecksum(&record, tcp));
}

}  // namespace

extern "C" int32_t zxframe_api_buildTcp(ether_ctt* pether_ctt, const zxbuildtcp_ctt* pether_pkt,
                                        uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{pether_pkt, "pether_pkt"})) {
        return -1;
    }
    if (const char* const missing = outbuf == nullptr ? "outbuf" : missing_text(*pether_pkt)) {
        ZX_LOG_PARAM(missing);
        return -1;
    }
    zxframe_innerapi_buildEthrt(pether_ctt, pether_pkt->str_dest_mac, pether_pkt->str_source_mac,
                                kEtherTypeIpv4, outbuf);
    zxframe_innerapi_buildIpv4(pether_ctt, kProtocolTcp, pether_pkt->source_ip, pether_pkt->dest_ip,
                               pether_pkt->option_len, outbuf + ether_at::payload);
    const std::size_t offset = ether_at::payload + kWord * pether_ctt->ipv4.header_len;
    zxframe_innerapi_buildTcpPayload(pether_ctt, pether_pkt, outbuf + offset);
    return static_cast<int32_t>(offset + kWord * pether_ctt->tcp.doff + pether_ctt->data_len);
}

extern "C" int32_t zxframe_api_finishTcp(uint8_t* frame, const uint8_t* payload,
                                         uint32_t payload_len) {
    if (frame == nullptr || (payload == nullptr && payload_len != 0)) {
        ZX_LOG_PARAM(frame == nullptr ? "frame" : "payload");
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
                   zxnet_api_checksum_ptc(tcp, zx::load_be32(ip + ipv4_at::saddr),
                                          zx::load_be32(ip + ipv4_at::daddr), kProtocolTcp,
                                          static_cast<std::uint8_t>(tcp_size), tcp + tcp_size,
                                          static_cast<std::uint16_t>(payload_len)));
    return static_cast<int32_t>(ether_at::payload + headers + payload_len);
}

extern "C" int32_t zxframe_api_buildUdp(ether_ctt* pether_ctt, const ether_pkt* pether_pkt,
                                        uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{pether_pkt, "pether_pkt"})) {
        return -1;
    }
    if (const char* const bad = outbuf == nullptr ? "outbuf" : endless_text(*pether_pkt)) {
        ZX_LOG_PARAM(bad);
        return -1;
    }
    zxframe_innerapi_buildEthrt(pether_ctt, pether_pkt->str_dest_mac, pether_pkt->str_source_mac,
                                kEtherTypeIpv4, outbuf);
    zxframe_innerapi_buildIpv4(pether_ctt, kProtocolUdp, pether_pkt->source_ip, pether_pkt->dest_ip,
                               0, outbuf + ether_at::payload);
    const std::size_t offset = ether_at::payload + kWord * pether_ctt->ipv4.header_len;
    zxframe_innerapi_buildUdpPayload(pether_ctt, pether_pkt, outbuf + offset);
    // The length of the UDP header, and what a TCP frame in this record had in its place.
    constexpr std::uint32_t kUdpWords = 2;
    return static_cast<int32_t>(offset + (pether_ctt->tcp.doff + kUdpWords) * kWord +
                                pether_ctt->data_len);
}

extern "C" int32_t zxframe_api_buildTcpAck(ether_ctt* pether_ctt, uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{outbuf, "pether_pkt"})) {
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
    if (!has_all(pether_ctt, Argument{outbuf, "pether_pkt"})) {
        return -1;
    }
    prepare_segment(*pether_ctt);
    write_segment(*pether_ctt, outbuf);
    return static_cast<int32_t>(ether_at::payload + kIpv4Size + kTcpSize + pether_ctt->data_len);
}

extern "C" uint16_t zxframe_api_tcpChecksum(const ether_ctt* pether_ctt, const uint8_t* tcph) {
    if (pether_ctt == nullptr || tcph == nullptr) {
        return kNoChecksum;
    }
    const ipv4_view& ip = pether_ctt->ipv4;
    return zxnet_api_checksum_ptc(tcph, ip.saddr, ip.daddr, ip.protocol,
                                  static_cast<std::uint8_t>(kWord * pether_ctt->tcp.doff),
                                  pether_ctt->data, payload_size(*pether_ctt));
}

extern "C" uint16_t zxframe_api_udpChecksum(const ether_ctt* pether_ctt, const uint8_t* udph) {
    if (pether_ctt == nullptr || udph == nullptr) {
        return kNoChecksum;
    }
    const ipv4_view& ip = pether_ctt->ipv4;
    const udp_view& udp = pether_ctt->udp;
    const std::uint16_t size = payload_size(*pether_ctt);
    std::uint8_t header[udp_at::payload];
    zx::store_be16(header + udp_at::source, udp.source);
    zx::store_be16(header + udp_at::dest, udp.dest);
    zx::store_be16(header + udp_at::len, udp.len);
    zx::store_be16(header + udp_at::check, udp.check);
    const std::uint16_t checksum =
        zxnet_api_checksum_ptc(header, ntohl(ip.saddr), ntohl(ip.daddr), ip.protocol, sizeof header,
                               pether_ctt->data, size);
    if (size % 2 == 0) {
        return checksum;
    }
    // The byte behind the payload completes its last word.
    const std::uint32_t sum = std::uint32_t{static_cast<std::uint16_t>(~checksum)} +
                              std::uint32_t{pether_ctt->data[size]};
    return static_cast<std::uint16_t>(~((sum >> 16U) + (sum & 0xFFFFU)));
}
