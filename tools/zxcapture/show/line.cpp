#include "show/line.hpp"

#include <arpa/inet.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "common/big_endian.hpp"
#include "packet/names.hpp"
#include "zxframe.h"

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
    explicit MacText(const std::uint8_t* mac) {
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                      mac[3], mac[4], mac[5]);
    }
    char text[ZXFRAME_MAC_TEXT_SIZE];
};

// An address as the line shows it, with its port if it has one.
using EndpointText = char[INET6_ADDRSTRLEN + 8];

void print_endpoint(EndpointText& end, const Packet& packet, const Address& address,
                    std::uint16_t port) {
    const AddressText text(address.is_ipv6 ? AF_INET6 : AF_INET, address.bytes.data());
    if (!packet.has_ports()) {
        std::snprintf(end, sizeof end, "%s", text.text);
    } else {
        std::snprintf(end, sizeof end, address.is_ipv6 ? "[%s]:%u" : "%s:%u", text.text, port);
    }
}

void add_endpoints(std::string& text, const Frame& frame, const Packet& packet) {
    EndpointText source = "?";
    EndpointText dest = "?";
    if (packet.network == Network::ipv4 || packet.network == Network::ipv6) {
        print_endpoint(source, packet, packet.source, packet.source_port);
        print_endpoint(dest, packet, packet.dest, packet.dest_port);
    } else if (packet.has_macs) {
        std::snprintf(source, sizeof source, "%s",
                      MacText(frame.bytes.data() + ZXFRAME_MAC_SIZE).text);
        std::snprintf(dest, sizeof dest, "%s", MacText(frame.bytes.data()).text);
    }
    add(text, "%21s > %-21s", source, dest);
}

void add_arp(std::string& text, const std::uint8_t* arp) {
    constexpr std::size_t kSenderAt = 8;
    constexpr std::size_t kTargetAt = 18;
    const unsigned operation = tools::load_be16(arp + 6);
    const AddressText sender(AF_INET, arp + kSenderAt + ZXFRAME_MAC_SIZE);
    const AddressText target(AF_INET, arp + kTargetAt + ZXFRAME_MAC_SIZE);
    if (tools::load_be16(arp + 2) != kTypeIpv4 || arp[4] != ZXFRAME_MAC_SIZE || arp[5] != 4) {
        add(text, " operation %u, not for IPv4 on Ethernet", operation);
    } else if (operation == kArpRequest) {
        add(text, " who has %s? tell %s", target.text, sender.text);
    } else if (operation == kArpReply) {
        add(text, " %s is at %s", sender.text, MacText(arp + kSenderAt).text);
    } else {
        add(text, " operation %u, %s to %s", operation, sender.text, target.text);
    }
}

void add_flags(std::string& text, std::uint8_t flags) {
    constexpr std::pair<std::uint8_t, const char*> kFlags[] = {
        {0x02, "SYN"}, {0x01, "FIN"}, {0x04, "RST"}, {0x08, "PSH"}, {0x10, "ACK"}, {0x20, "URG"}};
    const char* before = " [";
    for (const auto& [bit, name] : kFlags) {
        if ((flags & bit) != 0) {
            text.append(before).append(name);
            before = " ";
        }
    }
    text += (flags & 0x3F) != 0 ? "]" : " [none]";
}

// Adds fragment, payload size and flaws.
void add_extent(std::string& text, const Frame& frame, const Packet& packet) {
    if (packet.later_fragment) {
        add(text, " fragment at %u of id %u", packet.fragment_offset, packet.fragment_id);
    } else if (packet.first_fragment) {
        add(text, " first fragment of id %u", packet.fragment_id);
    } else if (packet.payload != 0) {
        add(text, " payload %u", packet.payload);
    }
    if (packet.flaw == Flaw::truncated) {
        add(text, " truncated: %zu of %u bytes", frame.bytes.size(), frame.length);
    } else if (packet.flaw == Flaw::malformed) {
        text += " malformed";
    }
}

// Adds what follows the length.
void add_details(std::string& text, const Frame& frame, const Packet& packet) {
    for (std::size_t i = 0; i < packet.tag_count; ++i) {
        add(text, " vlan %u", packet.tags.at(i).vlan());
    }
    if (packet.network == Network::arp) {
        add_arp(text, frame.bytes.data() + packet.network_at);
    } else if (packet.depth == Depth::transport && packet.transport == Transport::tcp) {
        add_flags(text, frame.bytes[packet.transport_at + 13]);
    } else if (packet.depth == Depth::link && packet.type <= kLargestLength) {
        add(text, " length %u", packet.type);
    } else if (const std::string_view name = full_protocol_name(packet); name.size() > kNameWidth) {
        text.append(" ").append(name);
    }
    add_extent(text, frame, packet);
}

}  // namespace

void Line::add(const Frame& frame, const Packet& packet, std::uint64_t, Output& output) {
    output.add(print(frame, packet));
}

std::string_view Line::print(const Frame& frame, const Packet& packet) {
    text_.clear();
    add_time(frame.time);
    add_endpoints(text_, frame, packet);
    capture::add(text_, " %-*s %5u", kNameWidth, std::string(protocol_name(packet)).c_str(),
                 frame.length);
    add_details(text_, frame, packet);
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
        capture::add(text_, ".%06ld ", time.tv_nsec / 1000);
    } else {
        text_ += ".------ ";
    }
}

}  // namespace capture
