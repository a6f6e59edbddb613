// The layers, for each other and for the exported functions. The exported functions have checked
// the arguments, so nothing here is NULL.
#pragma once

#include <cstdint>

#include "zxframe.h"

namespace zx::frame {

// Decode what begins at `at`. For IPv4 that includes the TCP or UDP header.
void parse_ethernet(ether_ctt& record, const std::uint8_t* at);
void parse_arp(ether_ctt& record, const std::uint8_t* at);
void parse_ipv4_packet(ether_ctt& record, const std::uint8_t* at);
void parse_tcp(ether_ctt& record, const std::uint8_t* at, bool with_options);
void parse_udp(ether_ctt& record, const std::uint8_t* at);

// Write a header to `out` and then decode it.
void build_ethernet(ether_ctt& record, const char* dest_mac, const char* source_mac,
                    std::uint16_t ether_type, std::uint8_t* out);
void build_ipv4(ether_ctt& record, std::uint8_t protocol, const char* source_ip,
                const char* dest_ip, std::uint32_t transport_len, std::uint8_t* out);
void build_tcp(ether_ctt& record, const zxbuildtcp_ctt& request, std::uint8_t* out);
void build_udp(ether_ctt& record, const ether_pkt& request, std::uint8_t* out);

// Checksums over the record's addresses and payload, and over the TCP header `tcp` or the record's
// UDP header.
[[nodiscard]] std::uint16_t tcp_checksum(const ether_ctt& record, const std::uint8_t* tcp);
[[nodiscard]] std::uint16_t udp_checksum(const ether_ctt& record);

}  // namespace zx::frame
