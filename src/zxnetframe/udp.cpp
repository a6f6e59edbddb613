// The UDP header.
#include <algorithm>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

extern "C" void zxframe_innerapi_parseUdp(ether_ctt* pether_ctt, const uint8_t* udph,
                                          const uint8_t* /*opt_source*/) {
    if (!has_all(pether_ctt, Argument{udph, "iph"})) {
        return;
    }
    udp_view& udp = pether_ctt->udp;
    udp.source = zx::load_be16(udph + udp_at::source);
    udp.dest = zx::load_be16(udph + udp_at::dest);
    udp.len = zx::load_be16(udph + udp_at::len);
    udp.check = zx::load_be16(udph + udp_at::check);
    pether_ctt->data_len = static_cast<std::uint16_t>(udp.len - udp_at::payload);
    if (pether_ctt->print_flag != 0) [[unlikely]] {
        ZX_LOG(info, "==================== UDP Header Info =====================");
        ZX_LOG(info, "Source Port: %u", udp.source);
        ZX_LOG(info, "Destination port:%u", udp.dest);
        ZX_LOG(info, "len :%u", udp.len);
        ZX_LOG(info, "Checksum:%#x", udp.check);
        ZX_LOG(info, "data len: %d", pether_ctt->data_len);
    }
    // What the record holds, not what the frame brought; a stranger's length may exceed it.
    const std::uint32_t size = std::min<std::uint32_t>(pether_ctt->data_len, ZXFRAME_DATA_SIZE);
    zxlog_innerapi_bufHex("Data", pether_ctt->data, size, __func__, __LINE__);
}

extern "C" void zxframe_innerapi_doUdp(ether_ctt* pether_ctt, const uint8_t* data) {
    if (has_all(pether_ctt, Argument{data, "data"})) {
        zxframe_innerapi_parseUdp(pether_ctt, data, data);
    }
}

extern "C" void zxframe_innerapi_buildUdpPayload(ether_ctt* pether_ctt, const ether_pkt* pether_pkt,
                                                 uint8_t* udph) {
    if (!has_all(pether_ctt, Argument{pether_pkt, "pether_pkt"}, Argument{udph, "udph"})) {
        return;
    }
    udp_view& udp = pether_ctt->udp;
    udp.source = pether_pkt->source;
    udp.dest = pether_pkt->dest;
    udp.len = static_cast<std::uint16_t>(pether_ctt->data_len + udp_at::payload);
    udp.check = 0;
    zx::store_be16(udph + udp_at::source, udp.source);
    zx::store_be16(udph + udp_at::dest, udp.dest);
    zx::store_be16(udph + udp_at::len, udp.len);
    zx::store_be16(udph + udp_at::check, udp.check);
    zx::store_be16(udph + udp_at::check, zxframe_api_udpChecksum(pether_ctt, udph));
    zxframe_innerapi_parseUdp(pether_ctt, udph, nullptr);
}
