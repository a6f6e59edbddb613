// capture_fields FILE: prints how the capture tool reads every frame of a capture file: a line of
// columns for each, which are named as tshark names its fields. Lists have commas.
#include <cstdio>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "packet/checksum.hpp"
#include "packet/groups.hpp"
#include "packet/icmp.hpp"
#include "packet/rtp.hpp"
#include "packet/tcp.hpp"
#include "show/text.hpp"
#include "source/source.hpp"

namespace {

using namespace capture;

constexpr const char* kNames[] = {"flaw",
                                  "network",
                                  "transport",
                                  "vlan",
                                  "priority",
                                  "type",
                                  "src",
                                  "dst",
                                  "hops",
                                  "proto",
                                  "ip.id",
                                  "ip.flags.df",
                                  "mf",
                                  "offset",
                                  "fraghdr.ident",
                                  "ip.checksum.status",
                                  "checksum.status",
                                  "srcport",
                                  "dstport",
                                  "payload",
                                  "tcp.seq_raw",
                                  "tcp.ack_raw",
                                  "tcp.flags",
                                  "tcp.window_size_value",
                                  "tcp.urgent_pointer",
                                  "tcp.options.mss_val",
                                  "tcp.options.wscale.shift",
                                  "tcp.options.sack_perm",
                                  "tcp.options.sack_le",
                                  "tcp.options.sack_re",
                                  "tcp.options.timestamp.tsval",
                                  "tcp.options.timestamp.tsecr",
                                  "icmp.type",
                                  "icmp.code",
                                  "icmp.ident",
                                  "icmp.seq",
                                  "icmp.target",
                                  "icmp.mtu",
                                  "group.version",
                                  "group.acts",
                                  "group.addresses",
                                  "group.sources",
                                  "group.source_counts",
                                  "rtp.marker",
                                  "rtp.p_type",
                                  "rtp.seq",
                                  "rtp.timestamp",
                                  "rtp.ssrc",
                                  "rtp.payload"};

class Row {
public:
    template <typename Value>
    void set(std::string_view name, const Value& value) {
        Text text;
        text << value;
        for (std::size_t i = 0; i < std::size(kNames); ++i) {
            if (name == kNames[i]) {
                values_[i].append(values_[i].empty() ? "" : ",").append(text.view());
                return;
            }
        }
        std::fprintf(stderr, "no column %s\n", std::string(name).c_str());
    }
    void print() const {
        for (const std::string& value : values_) {
            std::printf("%s\t", value.c_str());
        }
        std::printf("\n");
    }

private:
    std::string values_[std::size(kNames)];
};

// As tshark has it: 0 wrong, 1 right, 2 and 3 for what it did not or could not verify.
void set_status(Row& row, std::string_view name, Checksum checksum) {
    if (checksum == Checksum::right || checksum == Checksum::wrong) {
        row.set(name, checksum == Checksum::right ? 1U : 0U);
    }
}

void set_tcp(Row& row, const Frame& frame, const Packet& packet) {
    const auto tcp = read_tcp(frame, packet);
    if (!tcp) {
        return;
    }
    row.set("tcp.seq_raw", tcp->sequence);
    row.set("tcp.ack_raw", tcp->acknowledgment);
    row.set("tcp.flags", tcp->flags);
    row.set("tcp.window_size_value", tcp->window);
    row.set("tcp.urgent_pointer", tcp->urgent);
    const TcpOptions options = read_tcp_options(frame, packet);
    if (options.segment_size) {
        row.set("tcp.options.mss_val", *options.segment_size);
    }
    if (options.window_shift) {
        row.set("tcp.options.wscale.shift", *options.window_shift);
    }
    if (options.sack_permitted) {
        row.set("tcp.options.sack_perm", 1U);
    }
    for (unsigned i = 0; i < options.sack_count; ++i) {
        row.set("tcp.options.sack_le", options.sacks[i].left);
        row.set("tcp.options.sack_re", options.sacks[i].right);
    }
    if (options.timestamps) {
        row.set("tcp.options.timestamp.tsval", options.timestamps->value);
        row.set("tcp.options.timestamp.tsecr", options.timestamps->echo);
    }
}

void set_icmp(Row& row, const Frame& frame, const Packet& packet) {
    const auto icmp = read_icmp(frame, packet);
    if (!icmp) {
        return;
    }
    row.set("icmp.type", icmp->type);
    row.set("icmp.code", icmp->code);
    if (icmp->echo) {
        row.set("icmp.ident", icmp->echo->id);
        row.set("icmp.seq", icmp->echo->sequence);
    }
    if (icmp->target) {
        row.set("icmp.target", *icmp->target);
    }
    if (icmp->largest_packet) {
        row.set("icmp.mtu", *icmp->largest_packet);
    }
}

void set_groups(Row& row, const Frame& frame, const Packet& packet) {
    auto groups = read_groups(frame, packet);
    if (!groups) {
        return;
    }
    if (packet.transport == Transport::igmp) {
        row.set("group.version", groups->version());
    }
    while (const auto record = groups->next()) {
        row.set("group.acts", static_cast<unsigned>(record->act));
        row.set("group.addresses", record->group);
        row.set("group.source_counts", record->source_count);
        const std::size_t size = record->group.size();
        for (std::size_t at = 0; at + size <= record->sources.size(); at += size) {
            row.set("group.sources", address_at(&record->sources[at], record->group.is_ipv6));
        }
    }
}

void set_rtp(Row& row, const Frame& frame, const Packet& packet) {
    if (const auto rtp = read_rtp(frame, packet)) {
        row.set("rtp.marker", rtp->marker ? 1U : 0U);
        row.set("rtp.p_type", rtp->payload_type);
        row.set("rtp.seq", rtp->sequence);
        row.set("rtp.timestamp", rtp->timestamp);
        row.set("rtp.ssrc", rtp->sender);
        row.set("rtp.payload", rtp->payload.size());
    }
}

void set_ip(Row& row, const Frame& frame, const Packet& packet) {
    row.set("src", packet.source);
    row.set("dst", packet.dest);
    row.set("hops", packet.hops);
    row.set("proto", packet.protocol);
    row.set("mf", packet.more_fragments ? 1U : 0U);
    row.set("offset", packet.fragment_offset);
    if (packet.network == Network::ipv4) {
        row.set("ip.id", packet.fragment_id);
        row.set("ip.flags.df", packet.dont_fragment ? 1U : 0U);
        set_status(row, "ip.checksum.status", check_header(frame, packet));
    } else if (packet.fragment_id != 0) {
        row.set("fraghdr.ident", packet.fragment_id);
    }
}

void print(const Frame& frame, const Packet& packet) {
    constexpr const char* kFlaws[] = {"", "truncated", "malformed"};
    constexpr const char* kNetworks[] = {"", "arp", "ip", "ipv6"};
    constexpr const char* kTransports[] = {"", "tcp", "udp", "icmp", "icmpv6", "igmp"};
    Row row;
    row.set("flaw", std::string_view(kFlaws[static_cast<int>(packet.flaw)]));
    row.set("network", std::string_view(kNetworks[static_cast<int>(packet.network)]));
    row.set("transport", std::string_view(kTransports[static_cast<int>(packet.transport)]));
    for (unsigned i = 0; i < packet.tag_count; ++i) {
        row.set("vlan", packet.tags[i].vlan());
        row.set("priority", packet.tags[i].priority());
    }
    if (packet.depth != Depth::none) {
        row.set("type", packet.type);
    }
    if (packet.has_ip()) {
        set_ip(row, frame, packet);
    }
    if (packet.has_ports()) {
        row.set("srcport", packet.source_port);
        row.set("dstport", packet.dest_port);
        row.set("payload", packet.payload);
    }
    set_status(row, "checksum.status", check_transport(frame, packet));
    set_tcp(row, frame, packet);
    set_icmp(row, frame, packet);
    set_groups(row, frame, packet);
    set_rtp(row, frame, packet);
    row.print();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    for (const char* const name : kNames) {
        std::printf("%s\t", name);
    }
    std::printf("\n");
    const auto source = open_file(argv[1], {});
    Frame frame;
    for (Got got = source->next(frame); got != Got::end; got = source->next(frame)) {
        if (got == Got::frame) {
            print(frame, dissect(frame));
        }
    }
}
