// Decides which frames pass a capture filter.
#include <string_view>

#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"
#include "zxstr.h"

using namespace zx::frame;

namespace {

constexpr std::int32_t kNoPort = -1;

std::uint8_t is_set(const char* text) {
    return text != nullptr && *text != '\0' ? 1 : 0;
}
std::uint8_t is_set(std::int32_t port) {
    return port > 0 ? 1 : 0;
}

void initialize(frame_filter_ctt& filter) {
    filter.has_mac = is_set(filter.mac);
    filter.has_source_mac = is_set(filter.source_mac);
    filter.has_dest_mac = is_set(filter.dest_mac);
    const std::string_view protocol = is_set(filter.protocol) != 0 ? filter.protocol : "";
    filter.protocol_number = protocol == "tcp"   ? kProtocolTcp
                             : protocol == "udp" ? kProtocolUdp
                                                 : 0;
    filter.has_protocol = filter.protocol_number != 0 ? 1 : 0;
    filter.has_ip = is_set(filter.ip);
    filter.has_source_ip = is_set(filter.source_ip);
    filter.has_dest_ip = is_set(filter.dest_ip);
    filter.has_port = is_set(filter.port);
    filter.has_source_port = is_set(filter.source_port);
    filter.has_dest_port = is_set(filter.dest_port);
    filter.active = filter.has_mac | filter.has_source_mac | filter.has_dest_mac |
                    filter.has_protocol | filter.has_ip | filter.has_source_ip |
                    filter.has_dest_ip | filter.has_port | filter.has_source_port |
                    filter.has_dest_port;
    filter.initialized = 1;
}

// True when the text of the filter contains the text of the frame. The logging library compares
// them, and case matters.
bool names(const char* wanted, const char* text) {
    return zxstr_api_isCasestr(wanted, text) != 0;
}
bool names(const char* wanted, std::uint32_t address) {
    return names(wanted, AddressText(address).text);
}

bool matches_addresses(const frame_filter_ctt& filter, const ipv4_view& ip) {
    if (filter.has_ip != 0) {
        return names(filter.ip, ip.saddr) || names(filter.ip, ip.daddr);
    }
    return (filter.has_source_ip == 0 || names(filter.source_ip, ip.saddr)) &&
           (filter.has_dest_ip == 0 || names(filter.dest_ip, ip.daddr));
}

bool matches_ports(const frame_filter_ctt& filter, const ether_ctt& frame) {
    std::int32_t source = kNoPort;
    std::int32_t dest = kNoPort;
    if (frame.ipv4.protocol == kProtocolTcp) {
        source = frame.tcp.source;
        dest = frame.tcp.dest;
    } else if (frame.ipv4.protocol == kProtocolUdp) {
        source = frame.udp.source;
        dest = frame.udp.dest;
    }
    if (filter.has_port != 0) {
        return source == filter.port || dest == filter.port;
    }
    return (filter.has_source_port == 0 || source == filter.source_port) &&
           (filter.has_dest_port == 0 || dest == filter.dest_port);
}

bool passes_macs(const frame_filter_ctt& filter) {
    const char* const source = filter.frame.str_source_mac;
    const char* const dest = filter.frame.str_dest_mac;
    if (filter.has_mac != 0) {
        return names(filter.mac, source) || names(filter.mac, dest);
    }
    return (filter.has_source_mac == 0 || names(filter.source_mac, source)) &&
           (filter.has_dest_mac == 0 || names(filter.dest_mac, dest));
}

bool passes_ipv4(const frame_filter_ctt& filter) {
    const ether_ctt& frame = filter.frame;
    if (frame.ether_type != kEtherTypeIpv4) {
        return false;
    }
    if (filter.has_protocol != 0 && frame.ipv4.protocol != filter.protocol_number) {
        return false;
    }
    if (!matches_addresses(filter, frame.ipv4)) {
        return false;
    }
    return (filter.has_port | filter.has_source_port | filter.has_dest_port) == 0 ||
           matches_ports(filter, frame);
}

}  // namespace

extern "C" int32_t zxframe_api_filterFrame(void* /*context*/, const uint8_t* frame_buf,
                                           frame_filter_ctt* filter) {
    if (!ZX_ARE_GIVEN({filter, "filter"})) {
        return 0;
    }
    if (filter->initialized == 0) {
        initialize(*filter);
    }
    if (filter->active == 0) {
        return 1;
    }
    filter->frame.print_flag = 0;
    if (zxframe_api_doFrame(&filter->frame, frame_buf) != 0) {  // it checks frame_buf
        return 0;
    }
    if ((filter->has_mac | filter->has_source_mac | filter->has_dest_mac) != 0 &&
        !passes_macs(*filter)) {
        return 0;
    }
    // Deliberate: without a protocol or an address in the filter, its ports do not count.
    if ((filter->has_protocol | filter->has_ip | filter->has_source_ip | filter->has_dest_ip) ==
        0) {
        return 1;
    }
    return passes_ipv4(*filter) ? 1 : 0;
}

extern "C" int32_t zxframe_innerapi_filterFrameByMac(void* /*context*/,
                                                     const frame_filter_ctt* filter) {
    return ZX_ARE_GIVEN({filter, "filter"}) && passes_macs(*filter) ? 1 : 0;
}

extern "C" int32_t zxframe_innerapi_filterFrameByIp(void* /*context*/,
                                                    const frame_filter_ctt* filter) {
    return ZX_ARE_GIVEN({filter, "filter"}) && passes_ipv4(*filter) ? 1 : 0;
}
