// The checksums of TCP segments and UDP datagrams.
#include <arpa/inet.h>

#include <algorithm>

#include "zxframe.h"
#include "zxnet/checksum.hpp"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

using zx::net::kNoChecksum;

// Limited to the record's storage, because the sum would otherwise include what lies after it.
std::uint16_t payload_size(const ether_ctt& record) {
    return std::min<std::uint16_t>(record.data_len, ZXFRAME_DATA_SIZE);
}

}  // namespace

std::uint16_t zx::frame::tcp_checksum(const ether_ctt& record, const std::uint8_t* tcp) {
    const ipv4_view& ip = record.ipv4;
    return zx::net::pseudo_checksum(tcp, ip.saddr, ip.daddr, ip.protocol,
                                    static_cast<std::uint8_t>(kWord * record.tcp.doff), record.data,
                                    payload_size(record));
}

std::uint16_t zx::frame::udp_checksum(const ether_ctt& record) {
    const ipv4_view& ip = record.ipv4;
    const std::uint16_t size = payload_size(record);
    std::uint8_t header[udp_at::payload];
    write_udp(record.udp, header);
    const std::uint16_t checksum = zx::net::pseudo_checksum(
        header, ntohl(ip.saddr), ntohl(ip.daddr), ip.protocol, sizeof header, record.data, size);
    if (size % 2 == 0) {
        return checksum;
    }
    // Deliberate: the byte after an odd payload completes its last word.
    const std::uint32_t sum =
        std::uint32_t{static_cast<std::uint16_t>(~checksum)} + std::uint32_t{record.data[size]};
    return static_cast<std::uint16_t>(~zx::net::fold(sum));
}

extern "C" uint16_t zxframe_api_tcpChecksum(const ether_ctt* pether_ctt, const uint8_t* tcph) {
    return pether_ctt != nullptr && tcph != nullptr ? tcp_checksum(*pether_ctt, tcph) : kNoChecksum;
}

extern "C" uint16_t zxframe_api_udpChecksum(const ether_ctt* pether_ctt, const uint8_t* udph) {
    return pether_ctt != nullptr && udph != nullptr ? udp_checksum(*pether_ctt) : kNoChecksum;
}
