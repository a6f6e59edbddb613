// The IPv4 header, and what follows it.
#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/names.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint16_t kIdStep = 0x1361;
constexpr std::uint8_t kRouterAlertType = 148;
constexpr std::uint8_t kRouterAlertLen = 4;
constexpr std::uint8_t kTtl = 64;
constexpr std::uint8_t kTtlIgmp = 1;

[[gnu::cold, gnu::noinline]] void dump_header(const ipv4_view& ip, std::uint16_t fragment,
                                              zx::Caller caller) {
    const unsigned words = ip.header_len;
    ZX_LOG_AT(caller, info, "=============== IP header info===============");
    ZX_LOG_AT(caller, info, "Version :%d", static_cast<int>(ip.version));
    ZX_LOG_AT(caller, info, "Header Length:%d bytes(%d)", static_cast<int>(kWord * words),
              static_cast<int>(words));
    ZX_LOG_AT(caller, info, "Differentiated Services Field: 0x%02x", ip.tos);
    ZX_LOG_AT(caller, info, "Total Length: %d", ip.total_len);
    ZX_LOG_AT(caller, info, "Identification: 0x%04x(%d)", ip.id, ip.id);
    ZX_LOG_AT(caller, info, "Fragment offset: %d", fragment);
    ZX_LOG_AT(caller, info, "Time to live: %d", ip.ttl);
    if (const Name& name = kIpProtocols[ip.protocol]; !name.empty()) {
        ZX_LOG_AT(caller, info, "Protocol:%s(%d)", name.text, ip.protocol);
    } else {
        ZX_LOG_AT(caller, info, "Unknow protocol(%d)", ip.protocol);
    }
    ZX_LOG_AT(caller, info, "Header checksum: %#x", ip.check);
    ZX_LOG_AT(caller, info, "Source : %s", AddressText(ip.saddr).text);
    ZX_LOG_AT(caller, info, "Destination: %s", AddressText(ip.daddr).text);
}

[[gnu::cold, gnu::noinline]] void dump_unsupported(std::uint8_t protocol, zx::Caller caller) {
    if (protocol != 0 && !kIpProtocols[protocol].empty()) {
        ZX_LOG_AT(caller, info, "%s,no support parse", kIpProtocols[protocol].text);
    } else {
        ZX_LOG_AT(caller, info, "No supprt protocol(code:0x%02x(%d)),please fix me", protocol,
                  protocol);
    }
}

void name_protocol(ipv4_view& ip) {
    if (const Name& name = kIpProtocols[ip.protocol]; !name.empty()) {
        std::memset(ip.ip_proto_name, 0, sizeof ip.ip_proto_name);
        std::memcpy(ip.ip_proto_name, name.text, sizeof name.text);
    }
}

// Sets what depends on the protocol. An unsupported protocol gets a header of length 0.
void set_protocol_fields(ipv4_view& ip, std::uint8_t protocol) {
    switch (protocol) {
        case kProtocolTcp:
            ip.header_len = kIpv4Words;
            ip.flags = kDontFragment;
            ip.ttl = kTtl;
            break;
        case kProtocolUdp:
            ip.header_len = kIpv4Words;
            ip.flags = kDontFragment;
            ip.frag_off = 0;
            ip.ttl = kTtl;
            break;
        case kProtocolIgmp:
            ip.header_len = kIpv4Words + kRouterAlertLen / kWord;
            ip.flags = 0;
            ip.ttl = kTtlIgmp;
            ip.router_alert_type = kRouterAlertType;
            ip.router_alert_len = kRouterAlertLen;
            ip.router_alert = 0;
            break;
        default:
            ip.header_len = 0;
            break;
    }
}

void write_router_alert(const ipv4_view& ip, std::uint8_t* option) {
    option[0] = ip.router_alert_type;
    option[1] = ip.router_alert_len;
    zx::store_be16(option + 2, ip.router_alert);
}

[[gnu::cold, gnu::noinline]] void dump_router_alert(const ipv4_view& ip, zx::Caller caller) {
    ZX_LOG_AT(caller, info, "router_alert_type: %u", ip.router_alert_type);
    ZX_LOG_AT(caller, info, "router_alert_len: %u", ip.router_alert_len);
    ZX_LOG_AT(caller, info, "router_alert: %u", ip.router_alert);
}

void parse_header(ether_ctt& record, const std::uint8_t* at) {
    ipv4_view& ip = record.ipv4;
    const std::uint16_t fragment = zx::load_be16(at + ipv4_at::fragment);
    const std::uint8_t first = at[ipv4_at::version];
    ip.version = first >> 4U & kNibble;
    ip.header_len = first & kNibble;
    ip.tos = at[ipv4_at::tos];
    ip.total_len = zx::load_be16(at + ipv4_at::total_len);
    ip.id = zx::load_be16(at + ipv4_at::id);
    ip.frag_off = fragment & kFragmentOffsetMask;
    ip.ttl = at[ipv4_at::ttl];
    ip.protocol = at[ipv4_at::protocol];
    ip.check = zx::load_be16(at + ipv4_at::check);
    std::memcpy(&ip.saddr, at + ipv4_at::saddr, sizeof ip.saddr);
    std::memcpy(&ip.daddr, at + ipv4_at::daddr, sizeof ip.daddr);
    name_protocol(ip);
    if (record.print_flag != 0) [[unlikely]] {
        dump_header(ip, fragment, "zxframe_innerapi_parseIpv4");
    }
}

}  // namespace

void zx::frame::parse_ipv4_packet(ether_ctt& record, const std::uint8_t* at) {
    parse_header(record, at);
    const std::uint8_t* const transport = at + kWord * (at[ipv4_at::version] & kNibble);
    const std::uint8_t protocol = at[ipv4_at::protocol];
    if (protocol == kProtocolTcp) {
        parse_tcp(record, transport, true);
    } else if (protocol == kProtocolUdp) {
        parse_udp(record, transport);
    } else if (record.print_flag != 0) [[unlikely]] {
        dump_unsupported(protocol, "zxframe_innerapi_doIpv4");
    }
}

void zx::frame::build_ipv4(ether_ctt& record, std::uint8_t protocol, const char* source_ip,
                           const char* dest_ip, std::uint32_t transport_len, std::uint8_t* out) {
    ipv4_view& ip = record.ipv4;
    ip.version = 4;
    set_protocol_fields(ip, protocol);
    const auto header_size = static_cast<std::uint32_t>(kWord * ip.header_len);
    const std::uint32_t counted = protocol == kProtocolUdp ? udp_at::payload : transport_len;
    ip.tos = 0;
    ip.total_len = static_cast<std::uint16_t>(header_size + counted + record.data_len);
    ip.id = static_cast<std::uint16_t>(ip.id + kIdStep);
    ip.check = 0;
    ip.protocol = protocol;
    ip.saddr = address_to_send(source_ip);
    ip.daddr = address_to_send(dest_ip);

    write_ipv4(ip, out);
    if (protocol == kProtocolIgmp) {
        write_router_alert(ip, out + ipv4_at::router_alert);
    }
    zx::store_be16(out + ipv4_at::check, zxnet_api_checksum(out, header_size));
    parse_header(record, out);
    if (protocol == kProtocolIgmp && record.print_flag != 0) {
        dump_router_alert(ip, "zxframe_innerapi_buildIpv4");
    }
}

extern "C" void zxframe_innerapi_parseIpv4(ether_ctt* pether_ctt, const uint8_t* iph) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {iph, "iph"})) {
        parse_header(*pether_ctt, iph);
    }
}

extern "C" void zxframe_innerapi_doIpv4(ether_ctt* pether_ctt, const uint8_t* data) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {data, "data"})) {
        parse_ipv4_packet(*pether_ctt, data);
    }
}

extern "C" void zxframe_innerapi_doIpv6(ether_ctt* pether_ctt, const uint8_t* data) {
    static_cast<void>(ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {data, "data"}));
}

extern "C" void zxframe_innerapi_buildIpv4(ether_ctt* pether_ctt, uint8_t protocol,
                                           const char* source_ip, const char* dest_ip,
                                           uint32_t transport_len, uint8_t* outbuf) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {source_ip, "source_ip"}, {dest_ip, "dest_ip"},
                     {outbuf, "outbuf"})) {
        build_ipv4(*pether_ctt, protocol, source_ip, dest_ip, transport_len, outbuf);
    }
}
