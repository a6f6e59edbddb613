// ARP packets for IPv4 on Ethernet.
#include <array>
#include <cstring>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint16_t kRequest = 1;
constexpr std::uint16_t kReply = 2;

struct HardwareType {
    std::uint16_t value;
    const char* line;
};

constexpr std::array<HardwareType, 8> kHardwareTypes{{
    {1, "hardware type: Ethernet 10/100Mbps."},
    {2, "hardware type: Experimental Ethernet."},
    {3, "hardware type: AX.25 Level 2."},
    {4, "hardware type: PROnet token ring."},
    {6, "hardware type:IEEE 802.2 Ethernet/TR/TB."},
    {8, "hardware type:APPLEtalk."},
    {19, "hardware type:ATM."},
    {24, "hardware type:IEEE 1394 IPv4 ."},
}};

const char* hardware_line(std::uint16_t value) {
    for (const HardwareType& type : kHardwareTypes) {
        if (type.value == value) {
            return type.line;
        }
    }
    return "hardware type:Unknow.";
}

const char* operation_line(std::uint16_t operation) {
    switch (operation) {
        case kRequest:
            return "opcode:requset";
        case kReply:
            return "opcode:reply";
        default:
            return "opcode:unknow";
    }
}

[[gnu::cold, gnu::noinline]] void dump_packet(const arp_view& arp, zx::Caller caller) {
    ZX_LOG_AT(caller, info, "==================== ARP Header Info =====================");
    ZX_LOG_AT(caller, info, "%s", hardware_line(arp.hardware_type));
    ZX_LOG_AT(caller, info, "%s",
              arp.protocol_type == kEtherTypeIpv4 ? "protocol type:IP" : "protocol type:error.");
    ZX_LOG_AT(caller, info, "hardware size: %d", arp.hardware_len);
    ZX_LOG_AT(caller, info, "protocol size: %d", arp.protocol_len);
    ZX_LOG_AT(caller, info, "%s", operation_line(arp.operation));
    ZX_LOG_AT(caller, info, "sender mac: %s", MacText(arp.sender_mac).text);
    ZX_LOG_AT(caller, info, "sender ipaddr:%s", AddressText(arp.sender_ip).text);
    ZX_LOG_AT(caller, info, "target mac:%s", MacText(arp.target_mac).text);
    ZX_LOG_AT(caller, info, "target ipaddr:%s", AddressText(arp.target_ip).text);
}

}  // namespace

void zx::frame::parse_arp(ether_ctt& record, const std::uint8_t* at) {
    arp_view& arp = record.arp;
    arp.hardware_type = zx::load_be16(at + arp_at::hardware_type);
    arp.protocol_type = zx::load_be16(at + arp_at::protocol_type);
    arp.hardware_len = at[arp_at::hardware_len];
    arp.protocol_len = at[arp_at::protocol_len];
    arp.operation = zx::load_be16(at + arp_at::operation);
    std::memcpy(arp.sender_mac, at + arp_at::sender_mac, sizeof arp.sender_mac);
    std::memcpy(&arp.sender_ip, at + arp_at::sender_ip, sizeof arp.sender_ip);
    std::memcpy(arp.target_mac, at + arp_at::target_mac, sizeof arp.target_mac);
    std::memcpy(&arp.target_ip, at + arp_at::target_ip, sizeof arp.target_ip);
    if (record.print_flag != 0) [[unlikely]] {
        dump_packet(arp, "zxframe_innerapi_parseArp");
    }
}

extern "C" void zxframe_innerapi_parseArp(ether_ctt* pether_ctt, const uint8_t* parp) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {parp, "parp"})) {
        parse_arp(*pether_ctt, parp);
    }
}

extern "C" void zxframe_innerapi_doArp(ether_ctt* pether_ctt, const uint8_t* data) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {data, "data"})) {
        parse_arp(*pether_ctt, data);
    }
}

extern "C" int32_t zxframe_api_buildArp(ether_ctt* pether_ctt, const char* str_source_mac,
                                        const char* source_ip, const char* target_ip,
                                        uint8_t* outbuf) {
    constexpr char kBroadcast[] = "FF:FF:FF:FF:FF:FF";
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {str_source_mac, "str_source_mac"},
                      {outbuf, "outbuf"})) {
        return 0;
    }
    build_ethernet(*pether_ctt, kBroadcast, str_source_mac, kEtherTypeArp, outbuf);

    std::uint8_t* const packet = outbuf + ether_at::payload;
    zx::store_be16(packet + arp_at::hardware_type, kHardwareTypes.front().value);
    zx::store_be16(packet + arp_at::protocol_type, kEtherTypeIpv4);
    packet[arp_at::hardware_len] = ZXFRAME_MAC_SIZE;
    packet[arp_at::protocol_len] = sizeof(std::uint32_t);
    zx::store_be16(packet + arp_at::operation, kRequest);
    std::memcpy(packet + arp_at::sender_mac, pether_ctt->source_mac, ZXFRAME_MAC_SIZE);
    zx::store_be32(packet + arp_at::sender_ip, address_to_send(source_ip));
    // Deliberate: broadcast here, too, where most stacks write zeros.
    std::memcpy(packet + arp_at::target_mac, pether_ctt->dest_mac, ZXFRAME_MAC_SIZE);
    zx::store_be32(packet + arp_at::target_ip, address_to_send(target_ip));
    parse_arp(*pether_ctt, packet);
    return static_cast<int32_t>(ether_at::payload + arp_at::end);
}
