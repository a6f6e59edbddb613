#include "packet/names.hpp"

#include <array>
#include <cstdio>
#include <unordered_map>

#include "common/big_endian.hpp"
#include "zxframe.h"

namespace capture {
namespace {

constexpr std::size_t kLongestShortName = 7;

// A kind of protocol is asked for once. It is an EtherType, or the protocol of IP.
struct Names {
    std::string full;
    std::string brief;  // the full one, or the number
};

std::string trimmed(std::string_view name) {
    return std::string(name.substr(0, name.find_last_not_of(' ') + 1));
}

Names or_number(std::string full, std::string number) {
    const bool is_short = !full.empty() && full.size() <= kLongestShortName;
    std::string brief = is_short ? full : std::move(number);
    return {std::move(full), std::move(brief)};
}

Names of_type(std::uint16_t type) {
    char name[ZXFRAME_NAME_SIZE] = "";
    zxframe_innerapi_printEthrtType(0, type, name);
    char number[sizeof "0x0000"];
    std::snprintf(number, sizeof number, "0x%04x", type);
    return or_number(trimmed(name), number);
}

Names of_ipv4(std::uint8_t protocol) {
    std::uint8_t header[ZXFRAME_READABLE] = {0x45};
    header[9] = protocol;
    ether_ctt record{};
    zxframe_innerapi_parseIpv4(&record, header);
    return or_number(trimmed(record.ipv4.ip_proto_name), "IP/" + std::to_string(protocol));
}

Names of_ipv6(std::uint8_t protocol) {
    switch (protocol) {
        case kProtocolTcp:
            return {"TCP", "TCP"};
        case kProtocolUdp:
            return {"UDP", "UDP"};
        case kProtocolIcmpV6:
            return {"ICMPv6", "ICMPv6"};
        default:
            return or_number("", "IP6/" + std::to_string(protocol));
    }
}

Names of(const Packet& packet) {
    switch (packet.network) {
        case Network::ipv4:
            return of_ipv4(packet.protocol);
        case Network::ipv6:
            return of_ipv6(packet.protocol);
        default:
            return packet.has_length() ? Names{"802.3", "802.3"} : of_type(packet.type);
    }
}

const Names& names_of(const Packet& packet) {
    constexpr std::uint32_t kIpv4 = 1U << 16U;
    constexpr std::uint32_t kIpv6 = 2U << 16U;
    constexpr std::uint32_t kLength = 3U << 16U;
    static std::unordered_map<std::uint32_t, Names> known;
    const std::uint32_t key = packet.network == Network::ipv4   ? kIpv4 | packet.protocol
                              : packet.network == Network::ipv6 ? kIpv6 | packet.protocol
                              : packet.has_length()             ? kLength
                                                                : packet.type;
    auto at = known.find(key);
    if (at == known.end()) {
        at = known.emplace(key, of(packet)).first;
    }
    return at->second;
}

// Whether nothing says what the frame carries.
bool is_unknown(const Packet& packet) {
    const bool has_no_type = packet.type == kTypeNone && !packet.has_macs;
    return packet.depth == Depth::none || (packet.depth == Depth::link && has_no_type);
}

}  // namespace

std::string_view protocol_name(const Packet& packet) {
    return is_unknown(packet) ? "?" : std::string_view(names_of(packet).brief);
}

std::string_view full_protocol_name(const Packet& packet) {
    return is_unknown(packet) ? "" : std::string_view(names_of(packet).full);
}

}  // namespace capture
