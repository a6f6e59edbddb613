#include "packet/checksum.hpp"

#include <algorithm>

#include "common/big_endian.hpp"
#include "zxnet.h"

namespace capture {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kIpv4Size = 20;
constexpr std::size_t kUdpChecksumAt = 6;

// The sum of the 16-bit words (RFC 1071).
std::uint64_t sum_of(Bytes bytes) {
    const std::uint16_t checksum =
        zxnet_api_checksum(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    return static_cast<std::uint16_t>(~checksum);
}

Checksum judge(std::uint64_t sum) {
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return sum == 0xFFFF ? Checksum::right : Checksum::wrong;
}

// The addresses, the length and the protocol, which TCP, UDP and ICMPv6 include.
std::uint64_t pseudo_header(const Packet& packet, std::size_t size) {
    const std::size_t address = packet.source.size();
    return sum_of(Bytes(packet.source.bytes).first(address)) +
           sum_of(Bytes(packet.dest.bytes).first(address)) + size + packet.protocol;
}

bool has_source_route(Bytes options) {
    constexpr std::uint8_t kEnd = 0;
    constexpr std::uint8_t kNothing = 1;
    constexpr std::uint8_t kLoose = 131;
    constexpr std::uint8_t kStrict = 137;
    while (!options.empty() && options[0] != kEnd) {
        if (options[0] == kLoose || options[0] == kStrict) {
            return true;
        }
        const std::size_t size = options[0] == kNothing ? 1 : options.size() < 2 ? 0 : options[1];
        if (size == 0 || size > options.size()) {
            break;
        }
        options = options.subspan(size);
    }
    return false;
}

// A source route changes the destination on the way, and the checksum is for the last one.
bool is_on_its_way(const Frame& frame, const Packet& packet) {
    const std::size_t size = packet.transport_at - packet.network_at;
    return packet.is_routed ||
           (packet.network == Network::ipv4 &&
            has_source_route(bytes_at(frame, packet.network_at + kIpv4Size, size - kIpv4Size)));
}

}  // namespace

Checksum check_header(const Frame& frame, const Packet& packet) {
    const std::size_t size = packet.transport_at - packet.network_at;
    const Bytes header = bytes_at(frame, packet.network_at, size);
    const bool is_whole =
        packet.network == Network::ipv4 && size >= kIpv4Size && header.size() == size;
    return is_whole ? judge(sum_of(header)) : Checksum::unknown;
}

Checksum check_transport(const Frame& frame, const Packet& packet) {
    const Bytes all = captured_transport(frame, packet);
    const std::size_t whole = packet.network_end - packet.transport_at;
    if (packet.flaw != Flaw::none || packet.first_fragment || all.empty() || all.size() < whole ||
        whole > UINT16_MAX) {
        return Checksum::unknown;
    }
    if (packet.transport == Transport::icmp || packet.transport == Transport::igmp) {
        return judge(sum_of(all));
    }
    if (is_on_its_way(frame, packet)) {
        return Checksum::unknown;
    }
    std::size_t size = whole;
    if (packet.transport == Transport::udp) {
        if (packet.network == Network::ipv4 && tools::load_be16(&all[kUdpChecksumAt]) == 0) {
            return Checksum::absent;
        }
        size = std::min<std::size_t>(size, tools::load_be16(&all[4]));  // it may end before
    }
    return judge(sum_of(all.first(size)) + pseudo_header(packet, size));
}

}  // namespace capture
