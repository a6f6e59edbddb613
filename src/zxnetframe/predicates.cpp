// Questions about a decoded frame.
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

bool is_tcp(const ether_ctt& record) {
    return record.ether_type == kEtherTypeIpv4 && record.ipv4.protocol == kProtocolTcp;
}

// A text that is not an address matches no address, not even the broadcast address.
bool is_address(std::uint32_t address, const char* text) {
    return parse_address(text) == address;
}

}  // namespace

extern "C" int32_t zxframe_api_is_ipArp(const ether_ctt* pether_ctt) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"})) {
        return 0;
    }
    return pether_ctt->ether_type == kEtherTypeIpv4 || pether_ctt->ether_type == kEtherTypeArp ? 1
                                                                                               : 0;
}

extern "C" int32_t zxframe_api_is_IparpOrIpaddr(const ether_ctt* pether_ctt, const char* source_ip,
                                                const char* dest_ip) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"})) {
        return 0;
    }
    std::uint32_t source = 0;
    std::uint32_t dest = 0;
    if (pether_ctt->ether_type == kEtherTypeIpv4) {
        source = pether_ctt->ipv4.saddr;
        dest = pether_ctt->ipv4.daddr;
    } else if (pether_ctt->ether_type == kEtherTypeArp) {
        source = pether_ctt->arp.sender_ip;
        dest = pether_ctt->arp.target_ip;
    } else {
        return 0;
    }
    return is_address(source, source_ip) || is_address(dest, dest_ip) ? 1 : 0;
}

extern "C" int32_t zxframe_api_isTcp(const ether_ctt* pether_ctt) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"})) {
        return 0;
    }
    return is_tcp(*pether_ctt) ? 1 : 0;
}

extern "C" int32_t zxframe_api_isTcp_dTos_ack(const ether_ctt* pether_ctt,
                                              const char* filter_destip) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {filter_destip, "filter_destip"})) {
        return 0;
    }
    const tcp_view& tcp = pether_ctt->tcp;
    return is_tcp(*pether_ctt) && is_address(pether_ctt->ipv4.daddr, filter_destip) &&
                   tcp.ack != 0 && (tcp.urg | tcp.psh | tcp.rst | tcp.syn | tcp.fin) == 0 &&
                   pether_ctt->data_len == 0
               ? 1
               : 0;
}

extern "C" int32_t zxframe_api_isTcp_dTos_close(const ether_ctt* pether_ctt,
                                                const char* filter_destip) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {filter_destip, "filter_destip"})) {
        return 0;
    }
    const tcp_view& tcp = pether_ctt->tcp;
    return is_tcp(*pether_ctt) && is_address(pether_ctt->ipv4.daddr, filter_destip) &&
                   (tcp.ack & tcp.fin) != 0 && (tcp.urg | tcp.psh | tcp.rst | tcp.syn) == 0
               ? 1
               : 0;
}

extern "C" int32_t zxframe_api_isTcp_sTod_data(const ether_ctt* pether_ctt,
                                               const char* filter_srcip) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {filter_srcip, "filter_srcip"})) {
        return 0;
    }
    return is_tcp(*pether_ctt) && is_address(pether_ctt->ipv4.saddr, filter_srcip) &&
                   pether_ctt->data_len != 0
               ? 1
               : 0;
}
