// The UDP header.
#include <algorithm>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

constexpr char kParse[] = "zxframe_innerapi_parseUdp";

[[gnu::cold, gnu::noinline]] void dump_header(const ether_ctt& record, zx::Caller caller) {
    const udp_view& udp = record.udp;
    ZX_LOG_AT(caller, info, "==================== UDP Header Info =====================");
    ZX_LOG_AT(caller, info, "Source Port: %u", udp.source);
    ZX_LOG_AT(caller, info, "Destination port:%u", udp.dest);
    ZX_LOG_AT(caller, info, "len :%u", udp.len);
    ZX_LOG_AT(caller, info, "Checksum:%#x", udp.check);
    ZX_LOG_AT(caller, info, "data len: %d", record.data_len);
}

}  // namespace

void zx::frame::parse_udp(ether_ctt& record, const std::uint8_t* at) {
    udp_view& udp = record.udp;
    udp.source = zx::load_be16(at + udp_at::source);
    udp.dest = zx::load_be16(at + udp_at::dest);
    udp.len = zx::load_be16(at + udp_at::len);
    udp.check = zx::load_be16(at + udp_at::check);
    record.data_len = static_cast<std::uint16_t>(udp.len - udp_at::payload);
    if (record.print_flag != 0) [[unlikely]] {
        dump_header(record, kParse);
    }
    // Deliberate: dumps what the record holds, not what the frame brought. The length from the
    // frame may exceed that.
    const std::uint32_t size = std::min<std::uint32_t>(record.data_len, ZXFRAME_DATA_SIZE);
    zxlog_innerapi_bufHex("Data", record.data, size, kParse, __LINE__);
}

void zx::frame::build_udp(ether_ctt& record, const ether_pkt& request, std::uint8_t* out) {
    udp_view& udp = record.udp;
    udp.source = request.source;
    udp.dest = request.dest;
    udp.len = static_cast<std::uint16_t>(record.data_len + udp_at::payload);
    udp.check = 0;
    write_udp(udp, out);
    zx::store_be16(out + udp_at::check, udp_checksum(record));
    parse_udp(record, out);
}

extern "C" void zxframe_innerapi_parseUdp(ether_ctt* pether_ctt, const uint8_t* udph,
                                          const uint8_t* /*opt_source*/) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {udph, "iph"})) {
        parse_udp(*pether_ctt, udph);
    }
}

extern "C" void zxframe_innerapi_doUdp(ether_ctt* pether_ctt, const uint8_t* data) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {data, "data"})) {
        parse_udp(*pether_ctt, data);
    }
}

extern "C" void zxframe_innerapi_buildUdpPayload(ether_ctt* pether_ctt, const ether_pkt* pether_pkt,
                                                 uint8_t* udph) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {pether_pkt, "pether_pkt"}, {udph, "udph"})) {
        build_udp(*pether_ctt, *pether_pkt, udph);
    }
}
