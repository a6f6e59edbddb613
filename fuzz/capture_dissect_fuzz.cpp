// Takes any bytes apart as a frame of any link type, cut off anywhere, with every reader of a
// layer, and prints it in every form. All places must be inside the frame, and a line must be one
// line of printable characters. Its front is compared with what printf makes of the same.
#include <arpa/inet.h>
#include <pcap/dlt.h>

#include <memory>
#include <string>

#include "packet/checksum.hpp"
#include "packet/flaw.hpp"
#include "packet/groups.hpp"
#include "packet/icmp.hpp"
#include "packet/names.hpp"
#include "packet/rtp.hpp"
#include "packet/tcp.hpp"
#include "show/engine.hpp"
#include "show/line.hpp"
#include "support.hpp"

namespace {

using namespace capture;
using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxFrame = 65536;
constexpr int kLinks[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                          DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};

bool is_inside(Bytes part, Bytes whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
}

void check_places(const Frame& frame, const Packet& packet) {
    const std::size_t captured = frame.bytes.size();
    require(packet.tag_count <= kMostTags, "tags are bounded");
    require(packet.depth < Depth::link || !packet.has_macs || captured >= 14, "the MAC addresses");
    require(packet.depth < Depth::network || packet.network_at + 20U <= captured,
            "the network header");
    require(packet.depth >= Depth::network || packet.network == Network::none, "the network");
    require((packet.depth == Depth::transport) == (packet.transport != Transport::none),
            "the transport");
    if (packet.depth == Depth::transport) {
        const std::size_t fixed = packet.transport == Transport::tcp   ? 20
                                  : packet.transport == Transport::udp ? 8
                                                                       : 4;
        require(packet.transport_at >= packet.network_at + 20U &&
                    packet.transport_at + fixed <= captured &&
                    packet.transport_at + fixed <= packet.network_end,
                "the transport header");
    }
    if (packet.has_ports() && packet.flaw == Flaw::none) {
        require(packet.payload_at <= captured, "a header without a flaw was captured");
    }
    require(packet.flaw == Flaw::malformed || packet.network_end <= frame.length,
            "a packet that is not malformed fits the frame");
    const Flaw flaw = flaw_of(frame, packet);
    require(flaw == packet.flaw || packet.flaw == Flaw::none, "a flaw stays");
    require(flaw != Flaw::truncated || captured < frame.length,
            "only what was captured in part is truncated");
    if (packet.flaw != Flaw::malformed) {
        require(packet.payload_at + std::uint64_t{packet.payload} <= packet.network_end,
                "the payload");
    }
    require(is_inside(captured_payload(frame, packet), frame.bytes), "the captured payload");
    require(is_inside(captured_transport(frame, packet), frame.bytes), "the captured transport");
}

// What was captured beyond a packet without a flaw changes nothing.
void check_prefix(const Frame& frame, const Packet& packet, Bytes all) {
    Frame whole = frame;
    whole.bytes = all;
    const Packet other = dissect(whole);
    require(packet.flaw != Flaw::none ||
                (other.flaw == Flaw::none && other.depth == packet.depth &&
                 other.transport == packet.transport && other.protocol == packet.protocol &&
                 other.source == packet.source && other.dest_port == packet.dest_port &&
                 other.payload_at == packet.payload_at && other.payload == packet.payload &&
                 other.tag_count == packet.tag_count),
            "the same packet, captured as a whole");
}

void check_layers(const Frame& frame, const Packet& packet) {
    const auto tcp = read_tcp(frame, packet);
    require(tcp.has_value() == (packet.transport == Transport::tcp), "TCP is there");
    const TcpOptions options = read_tcp_options(frame, packet);
    require(options.sack_count <= kMostSacks, "ranges are bounded");
    require(read_icmp(frame, packet).has_value() ==
                (packet.transport == Transport::icmp || packet.transport == Transport::icmpv6),
            "ICMP is there");
    const auto rtp = read_rtp(frame, packet);
    require(!rtp || is_inside(rtp->payload, captured_payload(frame, packet)), "the payload of RTP");
    require(rtp || !looks_like_rtp(frame, packet), "what looks like RTP is read");
    if (auto groups = read_groups(frame, packet)) {
        std::size_t count = 0;
        for (auto record = groups->next(); record; record = groups->next()) {
            ++count;
            require(is_inside(record->sources, frame.bytes), "the sources of a group");
            require(record->sources.size() <= record->source_count * record->group.size(),
                    "no more sources than the record says");
            require(!(record->joins() && record->leaves()), "joins or leaves");
        }
        require(count * 8 <= frame.bytes.size(), "groups are bounded");
        require(!groups->next(), "nothing follows the last group");
    }
    require(check_header(frame, packet) != Checksum::absent, "IPv4 always has a checksum");
    require(packet.flaw == Flaw::none || check_transport(frame, packet) == Checksum::unknown,
            "only a packet that is there is checked");
}

std::string endpoint(const Packet& packet, const Address& address, std::uint16_t port) {
    char text[INET6_ADDRSTRLEN];
    inet_ntop(address.is_ipv6 ? AF_INET6 : AF_INET, address.bytes.data(), text, sizeof text);
    char end[INET6_ADDRSTRLEN + 8];
    std::snprintf(end, sizeof end, address.is_ipv6 ? "[%s]:%u" : "%s:%u", text, port);
    return packet.has_ports() ? end : text;
}

std::string mac(const std::uint8_t* at) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", at[0], at[1], at[2], at[3],
                  at[4], at[5]);
    return text;
}

// The line up to the length.
std::string front_of(const Frame& frame, const Packet& packet) {
    std::string source = "?";
    std::string dest = "?";
    if (packet.has_ip()) {
        source = endpoint(packet, packet.source, packet.source_port);
        dest = endpoint(packet, packet.dest, packet.dest_port);
    } else if (packet.has_macs) {
        source = mac(frame.bytes.data() + 6);
        dest = mac(frame.bytes.data());
    }
    char text[256];
    std::snprintf(text, sizeof text, "%21s > %-21s %-7s %5u", source.c_str(), dest.c_str(),
                  std::string(protocol_name(packet)).c_str(), frame.length);
    return text;
}

bool is_printable(std::string_view text, std::string_view also) {
    return std::ranges::all_of(text, [&](char character) {
        return (character >= ' ' && character <= '~') || also.find(character) != also.npos;
    });
}

void check_line(const Frame& frame, const Packet& packet, const TimeForm& time,
                const LineForm& form) {
    Line line(time, form);
    for (int i = 0; i < 2; ++i) {
        const std::string_view text = line.print(frame, packet);
        require(text.ends_with('\n') && is_printable(text.substr(0, text.size() - 1), ""),
                "a line is one line of printable characters");
        if (time.clock == Clock::none && !form.link) {
            require(text.starts_with(front_of(frame, packet)), "the front of the line");
        }
    }
    const std::string_view bytes = line.print_bytes(frame, packet);
    require(is_printable(bytes, "\t\n") && (bytes.empty() || bytes.ends_with('\n')),
            "lines of bytes are printable");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zx::fuzz::log_to_nowhere(4);
    static zx::fuzz::GuardedMemory memory(kMaxFrame);
    static Engine engine;
    Input all({data, size});
    Input control(all.take_bytes(zx::fuzz::kControlSize));
    const Bytes given = all.rest().first(std::min(all.rest().size(), kMaxFrame));
    const std::size_t captured =
        given.size() -
        std::min<std::size_t>(
            given.size(), control.take_below(3) == 0 ? control.take<std::uint16_t>() % 128U : 0);
    Frame frame;
    frame.bytes = {memory.copy(given.first(captured)), captured};
    frame.length = static_cast<std::uint32_t>(given.size() + control.take_below(4) / 3 * 100);
    frame.link =
        control.take_below(2) == 0 ? DLT_EN10MB : kLinks[control.take_below(std::size(kLinks))];
    frame.time = {control.take<std::int32_t>(), control.take<std::int32_t>()};
    if (control.take_below(8) == 0) {
        frame.time = {control.take<std::int64_t>(), control.take<std::int64_t>()};
    }
    const Packet packet = dissect(frame);
    check_places(frame, packet);
    check_layers(frame, packet);
    check_prefix(frame, packet, given);
    const auto clock = static_cast<Clock>(control.take_below(5));
    check_line(
        frame, packet,
        {.utc = control.take_below(2) == 0, .date = control.take_below(2) == 0, .clock = clock},
        {.verbose = control.take_below(2) == 0,
         .link = control.take_below(2) == 0,
         .hex = static_cast<HexForm>(control.take_below(3))});
    check_line(frame, packet, {.clock = Clock::none}, {.verbose = true});
    engine.dump(frame, packet);
    return 0;
}
