#include "show/field_table.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <numeric>

#include "common/big_endian.hpp"
#include "packet/flaw.hpp"
#include "zxframe.h"

namespace capture {
namespace {

constexpr unsigned kArpEthernet = 1;  // a kind of link

// A number of 1, 2 or 4 bytes in the order of the network.
template <std::size_t size>
std::uint64_t load(const std::uint8_t* at) {
    static_assert(size == 1 || size == 2 || size == 4);
    if constexpr (size == 4) {
        return tools::load_be32(at);
    } else if constexpr (size == 2) {
        return tools::load_be16(at);
    } else {
        return *at;
    }
}

void add(Values& values, std::uint64_t number) {
    values.push_back({.number = number});
}

void add_bytes(Values& values, const std::uint8_t* at, std::size_t size) {
    std::copy_n(at, size, values.emplace_back().bytes.begin());
}

void add_address(Values& values, const Address& address) {
    values.push_back({.bytes = address.bytes});
}

// The readers of numbers at a fixed place of a header: `bits` of them after a shift.
template <std::size_t at, std::size_t size, unsigned shift = 0, std::uint64_t bits = UINT32_MAX>
void network(const Headers& headers, Values& values) {
    add(values, load<size>(headers.network() + at) >> shift & bits);
}

template <std::size_t at, std::size_t size, unsigned shift = 0, std::uint64_t bits = UINT32_MAX>
void transport(const Headers& headers, Values& values) {
    add(values, load<size>(headers.transport() + at) >> shift & bits);
}

template <TcpFlag flag>
void tcp_flag(const Headers& headers, Values& values) {
    add(values, headers.tcp.has(flag) ? 1 : 0);
}

template <std::size_t at>
void mac(const Headers& headers, Values& values) {
    add_bytes(values, headers.frame.bytes.data() + at, ZXFRAME_MAC_SIZE);
}

// ARP has the addresses of the sender and then those of the target, of any sizes. One is a MAC or
// IPv4 address by its kind and its size.
template <bool of_target, bool is_mac>
void arp_address(const Headers& headers, Values& values) {
    constexpr std::size_t kFixed = 8;
    constexpr std::size_t kIpv4Size = 4;
    constexpr std::size_t kSize = is_mac ? ZXFRAME_MAC_SIZE : kIpv4Size;
    const std::uint8_t* const arp = headers.network();
    const unsigned kind = tools::load_be16(arp + (is_mac ? 0 : 2));
    const bool is_known = kind == (is_mac ? kArpEthernet : kTypeIpv4);
    const std::size_t mac_size = arp[4];
    const std::size_t size = is_mac ? mac_size : arp[5];
    const std::size_t pair_size = mac_size + arp[5];
    const std::size_t whole = kFixed + 2 * pair_size;
    const bool is_there = headers.frame.bytes.size() >= headers.packet.network_at + whole;
    if (is_known && size == kSize && is_there) {
        const std::size_t at = kFixed + (of_target ? pair_size : 0) + (is_mac ? 0 : mac_size);
        add_bytes(values, arp + at, kSize);
    }
}

// A length is in the place of a type.
bool is_length(std::uint16_t type) {
    return type != 0 && type <= kLargestLength;
}

std::uint16_t type_after(const Packet& packet, std::size_t tag) {
    return tag < packet.tag_count ? packet.tags.at(tag).type : packet.type;
}

void ethernet_type(const Headers& headers, Values& values) {
    if (const std::uint16_t type = type_after(headers.packet, 0); !is_length(type)) {
        add(values, type);
    }
}

void ethernet_length(const Headers& headers, Values& values) {
    if (const std::uint16_t type = type_after(headers.packet, 0); is_length(type)) {
        add(values, type);
    }
}

// The tags of IEEE 802.1ad have names of their own.
template <bool service, unsigned shift, unsigned bits>
void tag(const Headers& headers, Values& values) {
    for (std::size_t i = 0; i < headers.packet.tag_count; ++i) {
        const Tag& tag = headers.packet.tags.at(i);
        if ((tag.type == kTypeServiceVlan) == service) {
            add(values, unsigned{tag.control} >> shift & bits);
        }
    }
}

void tag_type(const Headers& headers, Values& values) {
    for (std::size_t i = 0; i < headers.packet.tag_count; ++i) {
        const std::uint16_t type = type_after(headers.packet, i + 1);
        if (headers.packet.tags.at(i).type != kTypeServiceVlan && !is_length(type)) {
            add(values, type);
        }
    }
}

void time_epoch(const Headers& headers, Values& values) {
    constexpr std::int64_t kNanosPerSecond = 1000000000;
    const timespec& time = headers.frame.time;
    // A damaged file may contain any number here.
    if (time.tv_nsec >= 0 && time.tv_nsec < kNanosPerSecond) {
        values.push_back(
            {.number = static_cast<std::uint64_t>(time.tv_sec), .nanos = time.tv_nsec});
    }
}

void source(const Headers& headers, Values& values) {
    add_address(values, headers.packet.source);
}

void dest(const Headers& headers, Values& values) {
    add_address(values, headers.packet.dest);
}

void tcp_length(const Headers& headers, Values& values) {
    if (headers.packet.payload_at != 0) {
        add(values, headers.packet.payload);
    }
}

template <std::uint32_t TcpOptions::Range::*end>
void sack(const Headers& headers, Values& values) {
    for (std::size_t i = 0; i < headers.options.sack_count; ++i) {
        add(values, headers.options.sacks.at(i).*end);
    }
}

template <std::uint32_t TcpOptions::Timestamps::*which>
void timestamp(const Headers& headers, Values& values) {
    if (headers.options.timestamps) {
        add(values, *headers.options.timestamps.*which);
    }
}

template <typename Part>
void optional_number(const std::optional<Part>& number, Values& values) {
    if (number) {
        add(values, *number);
    }
}

template <std::uint16_t Icmp::Echo::*which>
void echo(const Headers& headers, Values& values) {
    if (headers.icmp.echo) {
        add(values, *headers.icmp.echo.*which);
    }
}

// The messages of ICMP that ask and answer have the same two numbers as an echo.
template <std::size_t at>
void icmp_number(const Headers& headers, Values& values) {
    constexpr std::uint8_t kTypes[] = {0, 8, 13, 14, 15, 16, 17, 18};
    const auto there = bytes_at(headers.frame, headers.packet.transport_at + at, 2);
    if (std::ranges::find(kTypes, headers.icmp.type) != std::end(kTypes) && there.size() == 2) {
        add(values, tools::load_be16(there.data()));
    }
}

template <std::uint8_t type>
void icmp_target(const Headers& headers, Values& values) {
    if (headers.icmp.target && headers.icmp.type == type) {
        add_address(values, *headers.icmp.target);
    }
}

// A record of IGMPv3 or MLDv2, unlike the group of another message.
bool is_record(const GroupRecord& record) {
    return record.act >= GroupAct::is_include;
}

template <bool records, bool others>
void group(const Headers& headers, Values& values) {
    for (const GroupRecord& record : headers.groups) {
        if ((records && is_record(record)) || (others && !is_record(record))) {
            add_address(values, record.group);
        }
    }
}

void record_type(const Headers& headers, Values& values) {
    for (const GroupRecord& record : headers.groups) {
        if (is_record(record)) {
            add(values, 1U + static_cast<unsigned>(record.act) -
                            static_cast<unsigned>(GroupAct::is_include));
        }
    }
}

constexpr bool kOne = false;
constexpr bool kList = true;

constexpr Field kFields[] = {
    {"frame.number", Layer::frame, Notation::decimal, kOne, "number of the frame",
     [](const Headers& h, Values& v) { add(v, h.number); }},
    {"frame.time_epoch", Layer::frame, Notation::time, kOne, "seconds since 1970", time_epoch},
    {"frame.len", Layer::frame, Notation::decimal, kOne, "bytes on the wire",
     [](const Headers& h, Values& v) { add(v, h.frame.length); }},
    {"frame.cap_len", Layer::frame, Notation::decimal, kOne, "bytes that were captured",
     [](const Headers& h, Values& v) { add(v, h.frame.bytes.size()); }},
    // tshark shows a flaw as a text of its own, at the place where it stops. This one tells why
    // the fields of a header may be missing or wrong.
    {"zx.flaw", Layer::frame, Notation::flaw, kOne, "truncated (by the capture) or malformed",
     [](const Headers& h, Values& v) {
         if (const Flaw flaw = flaw_of(h.frame, h.packet); flaw != Flaw::none) {
             add(v, flaw == Flaw::truncated ? 0 : 1);
         }
     }},

    {"eth.dst", Layer::ethernet, Notation::mac, kOne, "destination", mac<0>},
    {"eth.src", Layer::ethernet, Notation::mac, kOne, "source", mac<ZXFRAME_MAC_SIZE>},
    {"eth.type", Layer::ethernet, Notation::hex4, kOne, "EtherType", ethernet_type},
    {"eth.len", Layer::ethernet, Notation::decimal, kOne, "length, in place of a type",
     ethernet_length},
    {"ieee8021ad.id", Layer::frame, Notation::decimal, kList, "VLANs of IEEE 802.1ad tags",
     tag<true, 0, 0xFFF>},
    {"ieee8021ad.priority", Layer::frame, Notation::decimal, kList, "their priorities",
     tag<true, 13, 7>},
    {"ieee8021ad.dei", Layer::frame, Notation::decimal, kList, "whether they may be dropped",
     tag<true, 12, 1>},
    {"vlan.id", Layer::frame, Notation::decimal, kList, "VLANs of IEEE 802.1Q tags",
     tag<false, 0, 0xFFF>},
    {"vlan.priority", Layer::frame, Notation::decimal, kList, "their priorities",
     tag<false, 13, 7>},
    {"vlan.dei", Layer::frame, Notation::flag, kList, "whether they may be dropped",
     tag<false, 12, 1>},
    {"vlan.etype", Layer::frame, Notation::hex4, kList, "the EtherTypes after them", tag_type},

    {"arp.hw.type", Layer::arp, Notation::decimal, kOne, "kind of link; 1: Ethernet",
     network<0, 2>},
    {"arp.proto.type", Layer::arp, Notation::hex4, kOne, "EtherType of the addresses",
     network<2, 2>},
    {"arp.hw.size", Layer::arp, Notation::decimal, kOne, "bytes of a link address", network<4, 1>},
    {"arp.proto.size", Layer::arp, Notation::decimal, kOne, "bytes of an address", network<5, 1>},
    {"arp.opcode", Layer::arp, Notation::decimal, kOne, "1: request, 2: reply", network<6, 2>},
    {"arp.src.hw_mac", Layer::arp, Notation::mac, kOne, "MAC address of the sender",
     arp_address<false, true>},
    {"arp.src.proto_ipv4", Layer::arp, Notation::ipv4, kOne, "IP address of the sender",
     arp_address<false, false>},
    {"arp.dst.hw_mac", Layer::arp, Notation::mac, kOne, "MAC address of the target",
     arp_address<true, true>},
    {"arp.dst.proto_ipv4", Layer::arp, Notation::ipv4, kOne, "IP address of the target",
     arp_address<true, false>},

    {"ip.version", Layer::ipv4, Notation::decimal, kOne, "4", network<0, 1, 4>},
    {"ip.hdr_len", Layer::ipv4, Notation::decimal, kOne, "bytes of the header",
     [](const Headers& h, Values& v) { add(v, (h.network()[0] & 0xFU) * std::uint64_t{4}); }},
    {"ip.dsfield", Layer::ipv4, Notation::hex2, kOne, "class of the traffic", network<1, 1>},
    {"ip.dsfield.dscp", Layer::ipv4, Notation::decimal, kOne, "its code point", network<1, 1, 2>},
    {"ip.dsfield.ecn", Layer::ipv4, Notation::decimal, kOne, "notification of congestion",
     network<1, 1, 0, 3>},
    {"ip.len", Layer::ipv4, Notation::decimal, kOne, "bytes of the packet", network<2, 2>},
    {"ip.id", Layer::ipv4, Notation::hex4, kOne, "identification", network<4, 2>},
    {"ip.flags.df", Layer::ipv4, Notation::flag, kOne, "must not be fragmented",
     network<6, 2, 14, 1>},
    {"ip.flags.mf", Layer::ipv4, Notation::flag, kOne, "more fragments follow",
     network<6, 2, 13, 1>},
    {"ip.frag_offset", Layer::ipv4, Notation::decimal, kOne,
     "place of the fragment, in units of 8 bytes", network<6, 2, 0, 0x1FFF>},
    {"ip.ttl", Layer::ipv4, Notation::decimal, kOne, "time to live", network<8, 1>},
    {"ip.proto", Layer::ipv4, Notation::decimal, kOne, "protocol", network<9, 1>},
    {"ip.checksum", Layer::ipv4, Notation::hex4, kOne, "checksum of the header", network<10, 2>},
    {"ip.src", Layer::ipv4, Notation::ipv4, kOne, "source", source},
    {"ip.dst", Layer::ipv4, Notation::ipv4, kOne, "destination", dest},

    {"ipv6.version", Layer::ipv6, Notation::decimal, kOne, "6", network<0, 1, 4>},
    {"ipv6.tclass", Layer::ipv6, Notation::hex8, kOne, "class of the traffic",
     network<0, 4, 20, 0xFF>},
    {"ipv6.tclass.dscp", Layer::ipv6, Notation::decimal, kOne, "its code point",
     network<0, 4, 22, 0x3F>},
    {"ipv6.tclass.ecn", Layer::ipv6, Notation::decimal, kOne, "notification of congestion",
     network<0, 4, 20, 3>},
    {"ipv6.flow", Layer::ipv6, Notation::hex6, kOne, "label of the flow",
     network<0, 4, 0, 0xFFFFF>},
    {"ipv6.plen", Layer::ipv6, Notation::decimal, kOne, "bytes after the header", network<4, 2>},
    {"ipv6.nxt", Layer::ipv6, Notation::decimal, kOne, "next header", network<6, 1>},
    {"ipv6.hlim", Layer::ipv6, Notation::decimal, kOne, "hop limit", network<7, 1>},
    {"ipv6.src", Layer::ipv6, Notation::ipv6, kOne, "source", source},
    {"ipv6.dst", Layer::ipv6, Notation::ipv6, kOne, "destination", dest},

    {"tcp.srcport", Layer::tcp, Notation::decimal, kOne, "source port", transport<0, 2>},
    {"tcp.dstport", Layer::tcp, Notation::decimal, kOne, "destination port", transport<2, 2>},
    {"tcp.seq_raw", Layer::tcp, Notation::decimal, kOne, "sequence number",
     [](const Headers& h, Values& v) { add(v, h.tcp.sequence); }},
    {"tcp.ack_raw", Layer::tcp, Notation::decimal, kOne, "acknowledgment number",
     [](const Headers& h, Values& v) { add(v, h.tcp.acknowledgment); }},
    {"tcp.hdr_len", Layer::tcp, Notation::decimal, kOne, "bytes of the header",
     [](const Headers& h, Values& v) { add(v, (h.transport()[12] >> 4U) * std::uint64_t{4}); }},
    {"tcp.flags", Layer::tcp, Notation::hex4, kOne, "all flags", transport<12, 2, 0, 0xFFF>},
    {"tcp.flags.ae", Layer::tcp, Notation::flag, kOne, "accurate ECN", tcp_flag<kNs>},
    {"tcp.flags.cwr", Layer::tcp, Notation::flag, kOne, "congestion window reduced",
     tcp_flag<kCwr>},
    {"tcp.flags.ece", Layer::tcp, Notation::flag, kOne, "congestion was notified", tcp_flag<kEce>},
    {"tcp.flags.urg", Layer::tcp, Notation::flag, kOne, "URG", tcp_flag<kUrg>},
    {"tcp.flags.ack", Layer::tcp, Notation::flag, kOne, "ACK", tcp_flag<kAck>},
    {"tcp.flags.push", Layer::tcp, Notation::flag, kOne, "PSH", tcp_flag<kPsh>},
    {"tcp.flags.reset", Layer::tcp, Notation::flag, kOne, "RST", tcp_flag<kRst>},
    {"tcp.flags.syn", Layer::tcp, Notation::flag, kOne, "SYN", tcp_flag<kSyn>},
    {"tcp.flags.fin", Layer::tcp, Notation::flag, kOne, "FIN", tcp_flag<kFin>},
    {"tcp.window_size_value", Layer::tcp, Notation::decimal, kOne, "window, not scaled",
     [](const Headers& h, Values& v) { add(v, h.tcp.window); }},
    {"tcp.checksum", Layer::tcp, Notation::hex4, kOne, "checksum",
     [](const Headers& h, Values& v) { add(v, h.tcp.checksum); }},
    {"tcp.urgent_pointer", Layer::tcp, Notation::decimal, kOne, "end of urgent data",
     [](const Headers& h, Values& v) { add(v, h.tcp.urgent); }},
    {"tcp.len", Layer::tcp, Notation::decimal, kOne, "bytes of the payload", tcp_length},
    {"tcp.options.mss_val", Layer::tcp, Notation::decimal, kOne, "largest segment size",
     [](const Headers& h, Values& v) { optional_number(h.options.segment_size, v); }},
    {"tcp.options.wscale.shift", Layer::tcp, Notation::decimal, kOne, "shift of the window",
     [](const Headers& h, Values& v) { optional_number(h.options.window_shift, v); }},
    {"tcp.options.sack_le", Layer::tcp, Notation::decimal, kList,
     "begins of ranges that have arrived", sack<&TcpOptions::Range::left>},
    {"tcp.options.sack_re", Layer::tcp, Notation::decimal, kList, "ends of these ranges",
     sack<&TcpOptions::Range::right>},
    {"tcp.options.timestamp.tsval", Layer::tcp, Notation::decimal, kOne, "time of the sender",
     timestamp<&TcpOptions::Timestamps::value>},
    {"tcp.options.timestamp.tsecr", Layer::tcp, Notation::decimal, kOne, "time that it has seen",
     timestamp<&TcpOptions::Timestamps::echo>},

    {"udp.srcport", Layer::udp, Notation::decimal, kOne, "source port", transport<0, 2>},
    {"udp.dstport", Layer::udp, Notation::decimal, kOne, "destination port", transport<2, 2>},
    {"udp.length", Layer::udp, Notation::decimal, kOne, "bytes with the header", transport<4, 2>},
    {"udp.checksum", Layer::udp, Notation::hex4, kOne, "checksum", transport<6, 2>},

    {"icmp.type", Layer::icmp, Notation::decimal, kOne, "type", transport<0, 1>},
    {"icmp.code", Layer::icmp, Notation::decimal, kOne, "code", transport<1, 1>},
    {"icmp.checksum", Layer::icmp, Notation::hex4, kOne, "checksum", transport<2, 2>},
    {"icmp.ident", Layer::icmp, Notation::decimal, kOne, "identifier of a question",
     icmp_number<4>},
    {"icmp.seq", Layer::icmp, Notation::decimal, kOne, "number of a question", icmp_number<6>},
    {"icmp.redir_gw", Layer::icmp, Notation::ipv4, kOne, "the better gateway", icmp_target<5>},
    {"icmp.mtu", Layer::icmp, Notation::decimal, kOne, "the largest packet that passes",
     [](const Headers& h, Values& v) { optional_number(h.icmp.largest_packet, v); }},

    {"icmpv6.type", Layer::icmpv6, Notation::decimal, kOne, "type", transport<0, 1>},
    {"icmpv6.code", Layer::icmpv6, Notation::decimal, kOne, "code", transport<1, 1>},
    {"icmpv6.checksum", Layer::icmpv6, Notation::hex4, kOne, "checksum", transport<2, 2>},
    {"icmpv6.echo.identifier", Layer::icmpv6, Notation::hex4, kOne, "identifier of an echo",
     echo<&Icmp::Echo::id>},
    {"icmpv6.echo.sequence_number", Layer::icmpv6, Notation::decimal, kOne, "number of an echo",
     echo<&Icmp::Echo::sequence>},
    {"icmpv6.mtu", Layer::icmpv6, Notation::decimal, kOne, "the largest packet that passes",
     [](const Headers& h, Values& v) { optional_number(h.icmp.largest_packet, v); }},
    {"icmpv6.nd.ns.target_address", Layer::icmpv6, Notation::ipv6, kOne,
     "the neighbour in question", icmp_target<135>},
    {"icmpv6.nd.na.target_address", Layer::icmpv6, Notation::ipv6, kOne,
     "the neighbour that answers", icmp_target<136>},
    {"icmpv6.mld.multicast_address", Layer::icmpv6, Notation::ipv6, kOne, "group of MLD",
     group<false, true>},
    {"icmpv6.mldr.mar.record_type", Layer::icmpv6, Notation::decimal, kList,
     "records of MLDv2: types", record_type},
    {"icmpv6.mldr.mar.multicast_address", Layer::icmpv6, Notation::ipv6, kList, "their groups",
     group<true, false>},

    {"igmp.version", Layer::igmp, Notation::decimal, kOne, "version",
     [](const Headers& h, Values& v) {
         if (h.groups_version != 0) {
             add(v, h.groups_version);
         }
     }},
    {"igmp.type", Layer::igmp, Notation::hex2, kOne, "type", transport<0, 1>},
    {"igmp.record_type", Layer::igmp, Notation::decimal, kList, "records of IGMPv3: types",
     record_type},
    {"igmp.maddr", Layer::igmp, Notation::ipv4, kList, "groups", group<true, true>},

    // No header says that a datagram is RTP: these are of those that look like it.
    {"rtp.version", Layer::rtp, Notation::decimal, kOne, "2",
     [](const Headers&, Values& v) { add(v, 2); }},
    {"rtp.marker", Layer::rtp, Notation::flag, kOne, "marker",
     [](const Headers& h, Values& v) { add(v, h.rtp.marker ? 1 : 0); }},
    {"rtp.p_type", Layer::rtp, Notation::decimal, kOne, "type of the payload",
     [](const Headers& h, Values& v) { add(v, h.rtp.payload_type); }},
    {"rtp.seq", Layer::rtp, Notation::decimal, kOne, "sequence number",
     [](const Headers& h, Values& v) { add(v, h.rtp.sequence); }},
    {"rtp.timestamp", Layer::rtp, Notation::decimal, kOne, "time in the stream",
     [](const Headers& h, Values& v) { add(v, h.rtp.timestamp); }},
    {"rtp.ssrc", Layer::rtp, Notation::hex8, kOne, "the source that sends",
     [](const Headers& h, Values& v) { add(v, h.rtp.sender); }},
};

// How many letters must change, come or go to make one text of the other. Of long texts, the
// beginning counts.
std::size_t edit_distance(std::string_view one, std::string_view other) {
    constexpr std::size_t kMost = 63;
    other = other.substr(0, kMost);
    std::array<std::size_t, kMost + 1> row;
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t k = 0; k < other.size(); ++k) {
            const std::size_t changed = diagonal + (one[i] == other[k] ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({changed, row[k] + 1, diagonal + 1});
        }
    }
    return row[other.size()];
}

template <typename Number>
void append_decimal(std::string& text, Number number) {
    char digits[24];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
    text.append(digits, end);
}

void append_hex(std::string& text, std::uint64_t number, unsigned digits) {
    text += "0x";
    while (digits > 0) {
        --digits;
        text += "0123456789abcdef"[number >> (4 * digits) & 0xFU];
    }
}

void append_time(std::string& text, const Value& value) {
    append_decimal(text, static_cast<std::int64_t>(value.number));
    char digits[] = ".000000000";
    std::int64_t rest = value.nanos;
    for (std::size_t i = sizeof digits - 2; i > 0; --i) {
        digits[i] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    text += digits;
}

void append_mac(std::string& text, const Value& value) {
    for (std::size_t i = 0; i < ZXFRAME_MAC_SIZE; ++i) {
        constexpr char kDigits[] = "0123456789abcdef";
        if (i > 0) {
            text += ':';
        }
        text += kDigits[value.bytes.at(i) / 16];
        text += kDigits[value.bytes.at(i) % 16];
    }
}

void append_ipv4(std::string& text, const Value& value) {
    for (std::size_t i = 0; i < 4; ++i) {
        if (i > 0) {
            text += '.';
        }
        append_decimal(text, value.bytes.at(i));
    }
}

void append_ipv6(std::string& text, const Value& value) {
    char printed[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, value.bytes.data(), printed, sizeof printed);
    text += printed;
}

}  // namespace

Headers::Headers(const Frame& of_frame, const Packet& of_packet, std::uint64_t of_number)
    : frame(of_frame), packet(of_packet), number(of_number) {
    set(Layer::frame);
    if (packet.has_macs) {
        set(Layer::ethernet);
    }
    constexpr Layer kNetworks[] = {Layer::frame, Layer::arp, Layer::ipv4, Layer::ipv6};
    set(kNetworks[static_cast<std::size_t>(packet.network)]);
    if (packet.depth == Depth::transport) {
        read_transport();
    }
}

void Headers::read_transport() {
    switch (packet.transport) {
        case Transport::tcp:
            set(Layer::tcp);
            tcp = read_tcp(frame, packet).value_or(Tcp{});
            options = read_tcp_options(frame, packet);
            break;
        case Transport::udp:
            set(Layer::udp);
            if (const std::optional<Rtp> read = looks_like_rtp(frame, packet)) {
                set(Layer::rtp);
                rtp = *read;
            }
            break;
        case Transport::icmp:
            set(Layer::icmp);
            icmp = read_icmp(frame, packet).value_or(Icmp{});
            break;
        case Transport::icmpv6:
            set(Layer::icmpv6);
            icmp = read_icmp(frame, packet).value_or(Icmp{});
            read_groups_of_message();
            break;
        case Transport::igmp:
            set(Layer::igmp);
            read_groups_of_message();
            break;
        case Transport::none:
            break;
    }
}

void Headers::read_groups_of_message() {
    if (std::optional<Groups> read = read_groups(frame, packet)) {
        groups_version = read->version();
        for (auto record = read->next(); record; record = read->next()) {
            groups.push_back(*record);
        }
    }
}

std::span<const Field> all_fields() {
    return kFields;
}

const Field* find_field(std::string_view name) {
    const Field* const at = std::ranges::find(kFields, name, &Field::name);
    return at == std::end(kFields) ? nullptr : at;
}

std::vector<std::string_view> fields_near(std::string_view name) {
    constexpr std::size_t kMost = 3;
    // Those that begin with it come first.
    const auto distance = [name](std::string_view other) {
        return std::pair(!other.starts_with(name), edit_distance(name, other));
    };
    std::vector<std::string_view> names;
    std::ranges::transform(kFields, std::back_inserter(names), &Field::name);
    std::ranges::stable_sort(names, {}, distance);
    names.resize(kMost);
    return names;
}

std::string field_list() {
    constexpr std::size_t kWidth = 36;
    std::string text;
    for (const Field& field : kFields) {
        text += field.name;
        text.append(kWidth - field.name.size(), ' ').append(field.meaning) += '\n';
    }
    return text;
}

void append_value(std::string& text, Notation notation, const Value& value) {
    switch (notation) {
        case Notation::decimal:
        case Notation::flag:
            append_decimal(text, value.number);
            break;
        case Notation::hex2:
            append_hex(text, value.number, 2);
            break;
        case Notation::hex4:
            append_hex(text, value.number, 4);
            break;
        case Notation::hex6:
            append_hex(text, value.number, 6);
            break;
        case Notation::hex8:
            append_hex(text, value.number, 8);
            break;
        case Notation::flaw:
            text += value.number == 0 ? "truncated" : "malformed";
            break;
        case Notation::time:
            append_time(text, value);
            break;
        case Notation::mac:
            append_mac(text, value);
            break;
        case Notation::ipv4:
            append_ipv4(text, value);
            break;
        case Notation::ipv6:
            append_ipv6(text, value);
            break;
    }
}

}  // namespace capture
