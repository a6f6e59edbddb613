// Which frames pass a capture filter.
#include <optional>
#include <string_view>

#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"

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

// True when the filter's text contains the frame's: zxstr_api_isCasestr() with the lengths known.
bool contains(const char* wanted, std::string_view text) {
    const std::string_view haystack{wanted};
    return haystack.size() == text.size() ? haystack == text
                                          : haystack.find(text) != std::string_view::npos;
}

// The same for an address. In a text that is one address itself, only one whose two numbers in the
// middle are the same can be found.
class WantedAddress {
public:
    explicit WantedAddress(const char* text) : text_(text), ip_(zx::parse_canonical(text)) {}

    [[nodiscard]] bool contains(std::uint32_t address) const {
        constexpr std::uint32_t kMiddle = 0x00FFFF00;
        const std::uint32_t ip = ntohl(address);
        if (ip_ && (ip == *ip_ || ((ip ^ *ip_) & kMiddle) != 0)) {
            return ip == *ip_;
        }
        const AddressText text{address};
        return ::contains(text_, {text.text, text.size});
    }

private:
    const char* text_;
    std::optional<std::uint32_t> ip_;
};

bool matches_addresses(const frame_filter_ctt& filter, const ipv4_view& ip) {
    if (filter.has_ip != 0) {
        const WantedAddress wanted(filter.ip);
        return wanted.contains(ip.saddr) || wanted.contains(ip.daddr);
    }
    return (filter.has_source_ip == 0 || WantedAddress(filter.source_ip).contains(ip.saddr)) &&
           (filter.has_dest_ip == 0 || WantedAddress(filter.dest_ip).contains(ip.daddr));
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

}  // namespace

extern "C" int32_t zxframe_api_filterFrame(void* context, const uint8_t* frame_buf,
                                           frame_filter_ctt* filter) {
    if (filter->initialized == 0) {
        initialize(*filter);
    }
    if (filter->active == 0) {
        return 1;
    }
    filter->frame.print_flag = 0;
    zxframe_api_doFrame(&filter->frame, frame_buf);
    if ((filter->has_mac | filter->has_source_mac | filter->has_dest_mac) != 0 &&
        zxframe_innerapi_filterFrameByMac(context, filter) == 0) {
        return 0;
    }
    // Ports alone are not looked at.
    if ((filter->has_protocol | filter->has_ip | filter->has_source_ip | filter->has_dest_ip) ==
        0) {
        return 1;
    }
    return zxframe_innerapi_filterFrameByIp(context, filter);
}

extern "C" int32_t zxframe_innerapi_filterFrameByMac(void* /*context*/,
                                                     const frame_filter_ctt* filter) {
    constexpr std::size_t kLength = ZXFRAME_MAC_TEXT_SIZE - 1;
    const std::string_view source{filter->frame.str_source_mac, kLength};
    const std::string_view dest{filter->frame.str_dest_mac, kLength};
    if (filter->has_mac != 0) {
        return contains(filter->mac, source) || contains(filter->mac, dest) ? 1 : 0;
    }
    return (filter->has_source_mac == 0 || contains(filter->source_mac, source)) &&
                   (filter->has_dest_mac == 0 || contains(filter->dest_mac, dest))
               ? 1
               : 0;
}

extern "C" int32_t zxframe_innerapi_filterFrameByIp(void* /*context*/,
                                                    const frame_filter_ctt* filter) {
    const ether_ctt& frame = filter->frame;
    if (frame.ether_type != kEtherTypeIpv4) {
        return 0;
    }
    if (filter->has_protocol != 0 && frame.ipv4.protocol != filter->protocol_number) {
        return 0;
    }
    if (!matches_addresses(*filter, frame.ipv4)) {
        return 0;
    }
    if ((filter->has_port | filter->has_source_port | filter->has_dest_port) == 0) {
        return 1;
    }
    return matches_ports(*filter, frame) ? 1 : 0;
}
