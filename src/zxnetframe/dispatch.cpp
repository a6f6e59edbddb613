// Decoding a frame: the Ethernet header, then the layer that it names. Also checks the layout of
// the records of the interface.
#include <cstddef>

#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/names.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

static_assert(sizeof(tcp_option) == 264 && sizeof(ipv4_view) == 152 && sizeof(arp_view) == 32 &&
              sizeof(tcp_view) == 33820 && sizeof(udp_view) == 8 && sizeof(ether_ctt) == 47784 &&
              sizeof(zxbuildtcp_ctt) == 33848 && sizeof(ether_pkt) == 644 &&
              sizeof(frame_filter_ctt) == 47872 && offsetof(tcp_option, val) == 5 &&
              offsetof(ipv4_view, ip_proto_name) == 24 && offsetof(arp_view, target_ip) == 28 &&
              offsetof(tcp_view, options) == 24 && offsetof(igmp_view, sources) == 16);
static_assert(offsetof(ether_ctt, ether_type_name) == 50 && offsetof(ether_ctt, arp) == 180 &&
              offsetof(ether_ctt, udp) == 332 && offsetof(ether_ctt, data) == 34152 &&
              offsetof(ether_ctt, print_flag) == 47780 && offsetof(zxbuildtcp_ctt, source) == 32 &&
              offsetof(zxbuildtcp_ctt, option_len) == 33844 && offsetof(ether_pkt, dest) == 642 &&
              offsetof(igmp_req, source_count) == 44 && offsetof(igmp_req, sources) == 46 &&
              offsetof(frame_filter_ctt, port) == 56 && offsetof(frame_filter_ctt, frame) == 84 &&
              offsetof(frame_filter_ctt, initialized) == 68);

namespace {

[[gnu::cold, gnu::noinline]] void dump_unsupported(std::uint16_t value, zx::Caller caller = {}) {
    if (const EtherType* const row = find_ether_type(value)) {
        ZX_LOG_AT(caller, info, "%s%s, no support to parse this frame", row->unsupported_prefix,
                  row->name.text);
    }
}

}  // namespace

extern "C" int32_t zxframe_api_doFrame(ether_ctt* pether_ctt, const uint8_t* frame_buf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {frame_buf, "frame_buf"})) {
        return -1;
    }
    parse_ethernet(*pether_ctt, frame_buf);
    const std::uint8_t* const network = frame_buf + ether_at::payload;
    switch (pether_ctt->ether_type) {
        case kEtherTypeIpv4:
            parse_ipv4_packet(*pether_ctt, network);
            break;
        case kEtherTypeArp:
            parse_arp(*pether_ctt, network);
            break;
        case kEtherTypeIpv6:
            break;
        default:
            if (pether_ctt->print_flag != 0) [[unlikely]] {
                dump_unsupported(pether_ctt->ether_type);
            }
            break;
    }
    return 0;
}
