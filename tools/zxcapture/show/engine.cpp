#include "show/engine.hpp"

#include <algorithm>

#include "common/big_endian.hpp"

namespace capture {
namespace {

constexpr std::size_t kMacsSize = std::size_t{2} * ZXFRAME_MAC_SIZE;
constexpr std::size_t kIpv6HeaderSize = 40;
constexpr std::size_t kTransportRoom = 60;  // the longest header of TCP

}  // namespace

void Engine::dump(const Frame& frame, const Packet& packet) {
    if (packet.depth == Depth::none) {
        return;
    }
    prepare(frame, packet);
    ether_ctt& record = *record_;
    record.print_flag = 1;
    record.tcp.option_count = 0;
    if (packet.flaw == Flaw::none && !packet.later_fragment) {
        dump_whole(frame, packet);
    } else {
        dump_captured_headers(packet);
    }
    record.print_flag = 0;
}

// A frame of another link type gets an Ethernet header with zeros as addresses.
void Engine::prepare(const Frame& frame, const Packet& packet) {
    start_.fill(0);
    if (packet.has_macs) {
        std::copy_n(frame.bytes.begin(), kMacsSize, start_.begin());
    }
    tools::store_be16(start_.data() + kMacsSize, packet.type);
    const std::span<const std::uint8_t> rest =
        bytes_at(frame, packet.network_at, start_.size() - ZXFRAME_ETHERNET_SIZE);
    std::copy(rest.begin(), rest.end(), start_.begin() + ZXFRAME_ETHERNET_SIZE);
}

// NULL: the place is after what the engine gets.
const std::uint8_t* Engine::at(std::size_t place, const Packet& packet) const {
    const std::size_t offset = place - packet.network_at + ZXFRAME_ETHERNET_SIZE;
    return offset + kTransportRoom <= start_.size() ? start_.data() + offset : nullptr;
}

void Engine::dump_whole(const Frame& frame, const Packet& packet) {
    copy_payload(frame, packet);
    zxframe_api_doFrame(record_.get(), start_.data());
    if (packet.network == Network::ipv6 && packet.has_ports()) {
        dump_transport_of_ipv6(packet);
    }
}

// The engine does not decode IPv6, but the TCP and UDP headers after it are the same. The engine
// takes the length of a TCP payload from the IPv4 fields, so these are set first.
void Engine::dump_transport_of_ipv6(const Packet& packet) {
    ether_ctt& record = *record_;
    const std::uint8_t* const header = at(packet.transport_at, packet);
    if (header == nullptr) {
        return;
    }
    record.ipv4.header_len = kIpv6HeaderSize / 4;
    const std::size_t headers = packet.payload_at - packet.transport_at;
    record.ipv4.total_len = static_cast<std::uint16_t>(kIpv6HeaderSize + headers + packet.payload);
    if (packet.transport == Transport::udp) {
        zxframe_innerapi_parseUdp(&record, header, nullptr);
    } else {
        zxframe_innerapi_parseTcp(&record, header, header);
    }
}

void Engine::dump_captured_headers(const Packet& packet) {
    ether_ctt& record = *record_;
    zxframe_innerapi_parseEthrt(&record, start_.data());
    if (packet.network == Network::ipv4) {
        zxframe_innerapi_parseIpv4(&record, start_.data() + ZXFRAME_ETHERNET_SIZE);
    }
    if (packet.depth == Depth::transport && packet.transport == Transport::tcp) {
        if (const std::uint8_t* const header = at(packet.transport_at, packet); header != nullptr) {
            zxframe_innerapi_parseTcp(&record, header, nullptr);
        }
    }
}

// The engine dumps the payload of a UDP packet from `data`, with the length in the UDP header.
void Engine::copy_payload(const Frame& frame, const Packet& packet) {
    if (packet.depth == Depth::transport && packet.transport == Transport::udp) {
        std::uint8_t(&data)[ZXFRAME_DATA_SIZE] = record_->data;
        const std::span<const std::uint8_t> payload = captured_payload(frame, packet);
        const auto end = std::copy_n(payload.begin(), std::min(payload.size(), sizeof data), data);
        std::fill(end, std::end(data), std::uint8_t{0});
    }
}

}  // namespace capture
