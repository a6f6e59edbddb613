#include "layers.hpp"

#include <algorithm>

#include "common/big_endian.hpp"
#include "zxframe.h"

namespace capture {
namespace {

constexpr std::size_t kNetworkAt = ZXFRAME_ETHERNET_SIZE;
constexpr std::size_t kArpSize = 28;
constexpr std::size_t kIpv4HeaderSize = 20;
constexpr std::size_t kTcpHeaderSize = 20;
constexpr std::size_t kUdpHeaderSize = 8;

// Reads the TCP or UDP header. `end` is where the packet ends according to its IP header.
void add_transport(const Frame& frame, std::size_t end, Layers& layers) {
    const std::size_t at = layers.transport_at;
    const bool is_tcp = layers.protocol == kProtocolTcp;
    const std::size_t fixed = is_tcp ? kTcpHeaderSize : kUdpHeaderSize;
    const auto flaw_before = [&](std::size_t needed) {
        return needed > end                  ? Flaw::malformed
               : needed > frame.bytes.size() ? Flaw::truncated
                                             : Flaw::none;
    };
    layers.flaw = flaw_before(at + fixed);
    if (layers.flaw != Flaw::none) {
        return;
    }
    layers.depth = Depth::transport;
    const std::uint8_t* const header = frame.bytes.data() + at;
    const std::size_t size = is_tcp ? std::size_t{4} * (header[12] / 16) : fixed;
    const std::size_t udp_size = is_tcp ? size : tools::load_be16(header + 4);
    const bool udp_ends_outside = at + udp_size > end && !layers.first_fragment;
    layers.flaw = size < fixed || udp_size < fixed || udp_ends_outside || end > frame.length
                      ? Flaw::malformed
                      : flaw_before(at + size);
    if (layers.flaw != Flaw::malformed) {
        const std::size_t packet = is_tcp ? end - at : std::min(udp_size, end - at);
        layers.payload_at = at + size;
        layers.payload = static_cast<std::uint32_t>(packet - size);
    }
}

void add_protocol(const Frame& frame, std::size_t end, Layers& layers) {
    if (layers.transport_at > end) {
        layers.flaw = Flaw::malformed;
    } else if (layers.protocol == kProtocolTcp || layers.protocol == kProtocolUdp) {
        add_transport(frame, end, layers);
    }
}

// Returns where the packet ends. The length is 0 in a packet that the interface will segment.
std::size_t end_of_packet(const Frame& frame, std::size_t length) {
    return length == 0 ? frame.length : kNetworkAt + length;
}

void add_ipv4(const Frame& frame, Layers& layers) {
    if (frame.bytes.size() < kNetworkAt + kIpv4HeaderSize) {
        layers.flaw = Flaw::truncated;
        return;
    }
    const std::uint8_t* const header = frame.bytes.data() + kNetworkAt;
    const std::size_t size = std::size_t{4} * (header[0] % 16);
    const std::uint16_t fragment = tools::load_be16(header + 6);
    layers.depth = Depth::network;
    layers.protocol = header[9];
    layers.later_fragment = (fragment & 0x1FFFU) != 0;
    layers.first_fragment = !layers.later_fragment && (fragment & 0x2000U) != 0;
    layers.transport_at = kNetworkAt + size;
    if (header[0] / 16U != 4 || size < kIpv4HeaderSize) {
        layers.flaw = Flaw::malformed;
    } else if (!layers.later_fragment) {
        add_protocol(frame, end_of_packet(frame, tools::load_be16(header + 2)), layers);
    }
}

void add_ipv6(const Frame& frame, Layers& layers) {
    layers.transport_at = kNetworkAt + kIpv6HeaderSize;
    if (frame.bytes.size() < layers.transport_at) {
        layers.flaw = Flaw::truncated;
        return;
    }
    const std::uint8_t* const header = frame.bytes.data() + kNetworkAt;
    const std::size_t payload = tools::load_be16(header + 4);
    layers.depth = Depth::network;
    layers.protocol = header[6];
    add_protocol(frame, end_of_packet(frame, payload == 0 ? 0 : kIpv6HeaderSize + payload), layers);
}

}  // namespace

Layers find_layers(const Frame& frame) {
    Layers layers;
    if (frame.bytes.size() < ZXFRAME_ETHERNET_SIZE) {
        layers.flaw = Flaw::truncated;
        return layers;
    }
    layers.depth = Depth::ethernet;
    layers.type = tools::load_be16(frame.bytes.data() + std::size_t{2} * ZXFRAME_MAC_SIZE);
    if (layers.type == kTypeIpv4) {
        add_ipv4(frame, layers);
    } else if (layers.type == kTypeIpv6) {
        add_ipv6(frame, layers);
    } else if (layers.type == kTypeArp) {
        const bool whole = frame.bytes.size() >= kNetworkAt + kArpSize;
        layers.depth = whole ? Depth::network : Depth::ethernet;
        layers.flaw = whole ? Flaw::none : Flaw::truncated;
    }
    return layers;
}

}  // namespace capture
