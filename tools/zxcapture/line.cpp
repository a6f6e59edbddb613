#include "line.hpp"

#include <arpa/inet.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "common/big_endian.hpp"

namespace capture {
namespace {

constexpr int kNameWidth = 7;  // longer names are printed after the length
constexpr std::uint16_t kArpRequest = 1;
constexpr std::uint16_t kArpReply = 2;

[[gnu::format(printf, 2, 3)]] void add(std::string& text, const char* format, ...) {
    char part[256];
    std::va_list args;
    va_start(args, format);
    const int size = std::vsnprintf(part, sizeof part, format, args);
    va_end(args);
    text.append(part, static_cast<std::size_t>(size));
}

struct AddressText {
    AddressText(int family, const void* address) { inet_ntop(family, address, text, sizeof text); }
    char text[INET6_ADDRSTRLEN] = "";
};

struct MacText {
    explicit MacText(const std::uint8_t (&mac)[ZXFRAME_MAC_SIZE]) {
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                      mac[3], mac[4], mac[5]);
    }
    char text[ZXFRAME_MAC_TEXT_SIZE];
};

// An address as the line shows it, with its port if it has one.
using EndpointText = char[INET6_ADDRSTRLEN + 8];

void print_endpoint(EndpointText& end, int family, const void* address, const Layers& layers,
                    std::uint16_t port) {
    const AddressText text(family, address);
    if (layers.depth != Depth::transport) {
        std::snprintf(end, sizeof end, "%s", text.text);
    } else {
        std::snprintf(end, sizeof end, family == AF_INET ? "%s:%u" : "[%s]:%u", text.text, port);
    }
}

void add_endpoints(std::string& text, const Frame& frame, const ether_ctt& record,
                   const Layers& layers) {
    constexpr std::size_t kIpv6Source = ZXFRAME_ETHERNET_SIZE + 8;
    constexpr std::size_t kIpv6Dest = kIpv6Source + 16;
    const bool is_tcp = layers.protocol == kProtocolTcp;
    const std::uint16_t source_port = is_tcp ? record.tcp.source : record.udp.source;
    const std::uint16_t dest_port = is_tcp ? record.tcp.dest : record.udp.dest;
    EndpointText source = "?";
    EndpointText dest = "?";
    if (layers.depth >= Depth::network && layers.type == kTypeIpv4) {
        print_endpoint(source, AF_INET, &record.ipv4.saddr, layers, source_port);
        print_endpoint(dest, AF_INET, &record.ipv4.daddr, layers, dest_port);
    } else if (layers.depth >= Depth::network && layers.type == kTypeIpv6) {
        print_endpoint(source, AF_INET6, frame.bytes.data() + kIpv6Source, layers, source_port);
        print_endpoint(dest, AF_INET6, frame.bytes.data() + kIpv6Dest, layers, dest_port);
    } else if (layers.depth >= Depth::ethernet) {
        std::snprintf(source, sizeof source, "%s", record.str_source_mac);
        std::snprintf(dest, sizeof dest, "%s", record.str_dest_mac);
    }
    add(text, "%21s > %-21s", source, dest);
}

void add_arp(std::string& text, const arp_view& arp) {
    const AddressText sender(AF_INET, &arp.sender_ip);
    const AddressText target(AF_INET, &arp.target_ip);
    if (arp.protocol_type != kTypeIpv4 || arp.hardware_len != ZXFRAME_MAC_SIZE ||
        arp.protocol_len != sizeof arp.sender_ip) {
        add(text, " operation %u, not for IPv4 on Ethernet", arp.operation);
    } else if (arp.operation == kArpRequest) {
        add(text, " who has %s? tell %s", target.text, sender.text);
    } else if (arp.operation == kArpReply) {
        add(text, " %s is at %s", sender.text, MacText(arp.sender_mac).text);
    } else {
        add(text, " operation %u, %s to %s", arp.operation, sender.text, target.text);
    }
}

void add_flags(std::string& text, const tcp_view& tcp) {
    const struct {
        unsigned is_set;
        const char* name;
    } flags[] = {{tcp.syn, "SYN"}, {tcp.fin, "FIN"}, {tcp.rst, "RST"},
                 {tcp.psh, "PSH"}, {tcp.ack, "ACK"}, {tcp.urg, "URG"}};
    std::string names;
    for (const auto& flag : flags) {
        if (flag.is_set != 0) {
            names.append(names.empty() ? "" : " ").append(flag.name);
        }
    }
    add(text, " [%s]", names.empty() ? "none" : names.c_str());
}

// Adds fragment, payload size and flaws.
void add_extent(std::string& text, const Frame& frame, const ether_ctt& record,
                const Layers& layers) {
    if (layers.later_fragment) {
        add(text, " fragment at %u of id %u", record.ipv4.frag_off * 8U, record.ipv4.id);
    } else if (layers.first_fragment) {
        add(text, " first fragment of id %u", record.ipv4.id);
    } else if (layers.payload != 0) {
        add(text, " payload %u", layers.payload);
    }
    if (layers.flaw == Flaw::truncated) {
        add(text, " truncated: %zu of %u bytes", frame.bytes.size(), frame.length);
    } else if (layers.flaw == Flaw::malformed) {
        text += " malformed";
    }
}

std::string_view trimmed(std::string_view name) {
    return name.substr(0, name.find_last_not_of(' ') + 1);
}

// The engine's name of the innermost protocol whose header is present. It may be empty.
std::string_view full_name(const ether_ctt& record, const Layers& layers) {
    if (layers.type == kTypeIpv4 && layers.depth >= Depth::network) {
        return trimmed(record.ipv4.ip_proto_name);
    }
    return layers.type > kLargestLength ? trimmed(record.ether_type_name) : "802.3";
}

// Adds what follows the length.
void add_details(std::string& text, const Frame& frame, const ether_ctt& record,
                 const Layers& layers) {
    if (layers.type == kTypeArp && layers.depth == Depth::network) {
        add_arp(text, record.arp);
    } else if (layers.depth == Depth::transport && layers.protocol == kProtocolTcp) {
        add_flags(text, record.tcp);
    } else if (layers.type == kTypeVlan && frame.bytes.size() >= ZXFRAME_ETHERNET_SIZE + 4) {
        const std::uint8_t* const tag = frame.bytes.data() + ZXFRAME_ETHERNET_SIZE;
        add(text, " vlan %u, type 0x%04x", tools::load_be16(tag) & 0xFFFU,
            tools::load_be16(tag + 2));
    } else if (layers.depth == Depth::ethernet && layers.type <= kLargestLength) {
        add(text, " length %u", layers.type);
    } else if (layers.depth != Depth::none && layers.type != kTypeIpv6) {
        const std::string_view name = full_name(record, layers);
        if (name.size() > kNameWidth) {
            text.append(" ").append(name);
        }
    }
    add_extent(text, frame, record, layers);
}

std::string numbered_name(const Layers& layers) {
    std::string name;
    if (layers.depth < Depth::network) {
        add(name, "0x%04x", layers.type);
    } else {
        add(name, layers.type == kTypeIpv6 ? "IP6/%u" : "IP/%u", layers.protocol);
    }
    return name;
}

}  // namespace

std::string protocol_name(const ether_ctt& record, const Layers& layers) {
    if (layers.depth == Depth::none) {
        return "?";
    }
    if (layers.type == kTypeIpv6 && layers.depth >= Depth::network) {
        return layers.protocol == kProtocolTcp      ? "TCP"
               : layers.protocol == kProtocolUdp    ? "UDP"
               : layers.protocol == kProtocolIcmpV6 ? "ICMPv6"
                                                    : numbered_name(layers);
    }
    const std::string_view name = full_name(record, layers);
    return name.empty() || name.size() > kNameWidth ? numbered_name(layers) : std::string(name);
}

std::string_view Line::print(const Frame& frame, const ether_ctt& record, const Layers& layers) {
    text_.clear();
    add_time(frame.time);
    add_endpoints(text_, frame, record, layers);
    add(text_, " %-*s %5u", kNameWidth, protocol_name(record, layers).c_str(), frame.length);
    add_details(text_, frame, record, layers);
    text_ += '\n';
    return text_;
}

void Line::add_time(const timespec& time) {
    if (time.tv_sec != second_) {
        tm parts{};
        form_.utc ? gmtime_r(&time.tv_sec, &parts) : localtime_r(&time.tv_sec, &parts);
        char printed[64];
        const std::size_t size =
            std::strftime(printed, sizeof printed, form_.date ? "%F %T" : "%T", &parts);
        second_text_.assign(printed, size);
        second_ = time.tv_sec;
    }
    text_ += second_text_;
    // A damaged file may contain any number here.
    if (time.tv_nsec >= 0 && time.tv_nsec < 1000000000) {
        add(text_, ".%06ld ", time.tv_nsec / 1000);
    } else {
        text_ += ".------ ";
    }
}

}  // namespace capture
