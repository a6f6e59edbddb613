#include "show/details.hpp"

#include <pcap/dlt.h>

#include <algorithm>

#include "common/big_endian.hpp"
#include "packet/checksum.hpp"
#include "packet/flaw.hpp"
#include "packet/groups.hpp"
#include "packet/icmp.hpp"
#include "packet/names.hpp"
#include "packet/rtp.hpp"
#include "packet/tcp.hpp"
#include "zxframe.h"

namespace capture {
namespace {

constexpr std::uint16_t kArpRequest = 1;
constexpr std::uint16_t kArpReply = 2;
constexpr std::size_t kNameWidth = 7;   // longer names of protocols are details
constexpr std::size_t kMostGroups = 4;  // on a line that is not verbose

void add_arp(Text& text, const std::uint8_t* arp) {
    constexpr std::size_t kSenderAt = 8;
    constexpr std::size_t kTargetAt = 18;
    const std::uint16_t operation = tools::load_be16(arp + 6);
    const Address sender = address_at(arp + kSenderAt + ZXFRAME_MAC_SIZE, false);
    const Address target = address_at(arp + kTargetAt + ZXFRAME_MAC_SIZE, false);
    if (tools::load_be16(arp + 2) != kTypeIpv4 || arp[4] != ZXFRAME_MAC_SIZE || arp[5] != 4) {
        text << " operation " << operation << ", not for IPv4 on Ethernet";
    } else if (operation == kArpRequest) {
        text << " who has " << target << "? tell " << sender;
    } else if (operation == kArpReply) {
        text << ' ' << sender << " is at " << Mac{arp + kSenderAt};
    } else {
        text << " operation " << operation << ", " << sender << " to " << target;
    }
}

void add_flags(Text& text, const Tcp& tcp) {
    constexpr std::pair<TcpFlag, std::string_view> kFlags[] = {
        {kSyn, "SYN"}, {kFin, "FIN"}, {kRst, "RST"}, {kPsh, "PSH"}, {kAck, "ACK"},
        {kUrg, "URG"}, {kEce, "ECE"}, {kCwr, "CWR"}, {kNs, "NS"}};
    std::string_view before = " [";
    for (const auto& [flag, name] : kFlags) {
        if (tcp.has(flag)) {
            text << before << name;
            before = " ";
        }
    }
    text << (before == " " ? "]" : " [none]");
}

void add_icmp(Text& text, const Icmp& icmp) {
    if (icmp.name.empty()) {
        text << " type " << icmp.type << " code " << icmp.code;
        return;
    }
    text << ' ' << icmp.name;
    if (!icmp.reason.empty()) {
        text << ": " << icmp.reason;
    } else if (icmp.code != 0) {
        text << " code " << icmp.code;
    }
    if (icmp.echo) {
        text << " id " << icmp.echo->id << " sequence " << icmp.echo->sequence;
    }
    if (icmp.target) {
        text << " to " << *icmp.target;
    }
    if (icmp.largest_packet) {
        text << ", at most " << *icmp.largest_packet;
    }
}

void add_sources(Text& text, const GroupRecord& record) {
    const std::size_t size = record.group.size();
    for (std::size_t at = 0; at + size <= record.sources.size(); at += size) {
        text << ' ' << address_at(&record.sources[at], record.group.is_ipv6);
    }
}

// "join 239.1.1.1", "query", "leave ff05::1 (to include)", "join 239.1.1.1 (allow, 2 sources)".
void add_group(Text& text, const GroupRecord& record, bool with_sources) {
    const std::string_view act = group_act_name(record.act);
    const std::string_view effect = record.joins() ? "join" : record.leaves() ? "leave" : act;
    text << ' ' << effect;
    if (record.group != Address{.bytes = {}, .is_ipv6 = record.group.is_ipv6}) {
        text << ' ' << record.group;
    }
    std::string_view before = " (";
    if (act != effect) {
        text << before << act;
        before = ", ";
    }
    if (record.source_count > 0) {
        text << before << record.source_count
             << (record.source_count == 1 ? " source" : " sources");
        before = ", ";
        if (with_sources) {
            add_sources(text, record);
        }
    }
    if (before == ", ") {
        text << ')';
    }
}

void add_groups(Text& text, Groups& groups, bool is_mld, bool is_verbose) {
    text << (is_mld ? " MLDv" : " v") << groups.version();
    std::size_t count = 0;
    for (auto record = groups.next(); record; record = groups.next()) {
        if (++count <= kMostGroups || is_verbose) {
            text << (count > 1 ? "," : "");
            add_group(text, *record, is_verbose);
        }
    }
    if (count > kMostGroups && !is_verbose) {
        text << " and " << count - kMostGroups << " more";
    }
}

void add_rtp(Text& text, const Frame& frame, const Packet& packet, bool is_verbose) {
    const std::optional<Rtp> rtp = looks_like_rtp(frame, packet);
    if (!rtp) {
        return;
    }
    text << " RTP type " << rtp->payload_type;
    if (const std::string_view name = rtp_payload_name(rtp->payload_type); !name.empty()) {
        text << ' ' << name;
    }
    text << (rtp->marker ? " marked" : "") << " sequence " << rtp->sequence << " time "
         << rtp->timestamp;
    if (is_verbose) {
        text << " sender 0x" << Hex{rtp->sender, 8};
    }
}

// Adds fragment, payload size and flaws.
void add_extent(Text& text, const Frame& frame, const Packet& packet) {
    if (packet.later_fragment) {
        text << " fragment at " << packet.fragment_offset << " of id " << packet.fragment_id;
    } else if (packet.first_fragment) {
        text << " first fragment of id " << packet.fragment_id;
    } else if (packet.payload != 0) {
        text << " payload " << packet.payload;
    }
    const Flaw flaw = flaw_of(frame, packet);
    if (flaw == Flaw::truncated) {
        text << " truncated: " << frame.bytes.size() << " of " << frame.length << " bytes";
    } else if (flaw == Flaw::malformed) {
        text << " malformed";
    }
}

void add_tags(Text& text, const Packet& packet, bool is_verbose) {
    for (std::size_t i = 0; i < packet.tag_count; ++i) {
        const Tag& tag = packet.tags.at(i);
        text << " vlan " << tag.vlan();
        if (is_verbose) {
            text << " priority " << tag.priority() << (tag.may_drop() ? " may drop" : "");
        }
    }
}

void add_ip_fields(Text& text, const Frame& frame, const Packet& packet) {
    const std::uint8_t* const header = frame.bytes.data() + packet.network_at;
    const bool is_ipv6 = packet.network == Network::ipv6;
    const unsigned traffic = is_ipv6 ? (tools::load_be16(header) >> 4U) & 0xFFU : header[1];
    text << (is_ipv6 ? " hop limit " : " ttl ") << packet.hops;
    if (!is_ipv6) {
        text << " id " << packet.fragment_id;
    }
    text << " dscp " << traffic / 4U;
    if (traffic % 4U != 0) {
        text << " ecn " << traffic % 4U;
    }
    if (packet.dont_fragment) {
        text << " DF";
    }
    if (packet.more_fragments) {
        text << " MF";
    }
    if (check_header(frame, packet) == Checksum::wrong) {
        text << " IP checksum wrong";
    }
}

void add_options(Text& text, const TcpOptions& options) {
    if (options.segment_size) {
        text << " mss " << *options.segment_size;
    }
    if (options.window_shift) {
        text << " wscale " << *options.window_shift;
    }
    if (options.sack_permitted) {
        text << " sackOK";
    }
    for (std::size_t i = 0; i < options.sack_count; ++i) {
        const TcpOptions::Range& range = options.sacks.at(i);
        text << " sack " << range.left << '-' << range.right;
    }
    if (options.timestamps) {
        text << " timestamp " << options.timestamps->value << " echo " << options.timestamps->echo;
    }
    if (options.is_malformed) {
        text << " malformed options";
    }
}

void add_tcp_fields(Text& text, const Frame& frame, const Packet& packet, const Tcp& tcp) {
    text << " seq " << tcp.sequence;
    if (tcp.has(kAck)) {
        text << " ack " << tcp.acknowledgment;
    }
    text << " win " << tcp.window;
    if (tcp.has(kUrg)) {
        text << " urgent " << tcp.urgent;
    }
    add_options(text, read_tcp_options(frame, packet));
}

void add_checksum(Text& text, const Frame& frame, const Packet& packet) {
    switch (check_transport(frame, packet)) {
        case Checksum::right:
            text << " checksum right";
            break;
        case Checksum::wrong:
            text << " checksum wrong";
            break;
        case Checksum::absent:
            text << " no checksum";
            break;
        case Checksum::unknown:
            break;
    }
}

void add_interface(Text& text, std::uint32_t index, InterfaceNames* interfaces) {
    const std::string_view name = interfaces != nullptr ? interfaces->find(index) : "";
    text << " interface ";
    if (name.empty()) {
        text << index;
    } else {
        text << name;
    }
}

// The header that Linux writes in place of any other: where a frame goes, and one address.
void add_cooked_link(Text& text, const Frame& frame, InterfaceNames* interfaces) {
    constexpr std::string_view kWays[] = {"in", "broadcast", "multicast", "other", "out"};
    const bool is_new = frame.link == DLT_LINUX_SLL2;
    const std::uint8_t* const header = frame.bytes.data();
    const unsigned way = is_new ? header[10] : tools::load_be16(header);
    const unsigned size = is_new ? header[11] : tools::load_be16(header + 4);
    text << (way < std::size(kWays) ? kWays[way] : "?");
    if (is_new) {
        add_interface(text, tools::load_be32(header + 4), interfaces);
    }
    if (size == ZXFRAME_MAC_SIZE) {
        text << ' ' << Mac{header + (is_new ? 12 : 6)};
    }
}

// What the innermost header says.
void add_header(Text& text, const Frame& frame, const Packet& packet, bool is_verbose) {
    if (packet.network == Network::arp) {
        add_arp(text, frame.bytes.data() + packet.network_at);
    } else if (packet.depth == Depth::link && packet.has_length()) {
        text << " length " << packet.type;
    } else if (const std::optional<Tcp> tcp = read_tcp(frame, packet)) {
        add_flags(text, *tcp);
    } else if (std::optional<Groups> groups = read_groups(frame, packet)) {
        add_groups(text, *groups, packet.network == Network::ipv6, is_verbose);
    } else if (const std::optional<Icmp> icmp = read_icmp(frame, packet)) {
        add_icmp(text, *icmp);
    } else if (packet.transport == Transport::igmp) {
        text << " type 0x" << Hex{frame.bytes[packet.transport_at], 2};
    } else if (const std::string_view name = full_protocol_name(packet); name.size() > kNameWidth) {
        text << ' ' << name;
    }
}

void add_fields(Text& text, const Frame& frame, const Packet& packet) {
    if (packet.has_ip()) {
        add_ip_fields(text, frame, packet);
        if (const std::optional<Tcp> tcp = read_tcp(frame, packet)) {
            add_tcp_fields(text, frame, packet, *tcp);
        }
        add_checksum(text, frame, packet);
    }
}

}  // namespace

void add_details(Text& text, const Frame& frame, const Packet& packet, bool is_verbose) {
    add_tags(text, packet, is_verbose);
    add_header(text, frame, packet, is_verbose);
    add_extent(text, frame, packet);
    add_rtp(text, frame, packet, is_verbose);
    if (is_verbose) {
        add_fields(text, frame, packet);
    }
}

void add_link(Text& text, const Frame& frame, const Packet& packet, InterfaceNames* interfaces) {
    if (packet.has_macs) {
        const std::uint8_t* const macs = frame.bytes.data();
        text << Mac{macs + ZXFRAME_MAC_SIZE} << " > " << Mac{macs};
    } else if (packet.depth != Depth::none &&
               (frame.link == DLT_LINUX_SLL || frame.link == DLT_LINUX_SLL2)) {
        add_cooked_link(text, frame, interfaces);
    } else {
        return;
    }
    text << " 0x" << Hex{packet.type, 4} << ' ';
}

}  // namespace capture
