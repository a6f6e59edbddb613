// Feeds frames of any bytes, at any times, to the tables of streams. The sums must hold, the tables
// stay small, and what is shown must be good JSON and lines that cannot control a terminal. A model
// with sets of numbers receives the packets of one source of RTP.
#include <algorithm>
#include <set>
#include <vector>

#include "streams/live_table.hpp"
#include "streams/streams.hpp"
#include "support.hpp"

namespace {

using capture::Flow;
using capture::Frame;
using capture::Packet;
using capture::Streams;
using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr Streams::Limits kLimits{.flows = 5, .sources = 4, .pids = 7, .members = 3};
constexpr std::size_t kPacketSize = 188;
using Content = std::vector<std::uint8_t>;

// The numbers of a source of RTP that never wrap.
struct RtpModel {
    std::set<std::int64_t> run;
    std::uint64_t packets = 0, lost_before = 0, late = 0, duplicates = 0, restarts = 0, strays = 0;
    int after_stray = -1;

    void add(std::uint16_t sequence) {
        if (packets++ == 0) {
            run = {0x10000 + sequence};
            return;
        }
        const std::int64_t last = *run.rbegin();
        const auto step = static_cast<std::uint16_t>(sequence - static_cast<std::uint16_t>(last));
        const std::int64_t behind = static_cast<std::uint16_t>(-step);
        if (step != 0 && step < 3000) {
            run.insert(last + step);
            after_stray = -1;
        } else if (behind < 512) {
            run.insert(last - behind).second ? ++late : ++duplicates;
        } else if (sequence == after_stray) {
            lost_before += lost();
            --strays;
            ++restarts;
            run = {0x10000 + std::int64_t{sequence} - 1, 0x10000 + std::int64_t{sequence}};
            after_stray = -1;
        } else {
            ++strays;
            after_stray = static_cast<std::uint16_t>(sequence + 1);
        }
    }
    [[nodiscard]] std::uint64_t lost() const {
        return static_cast<std::uint64_t>(*run.rbegin() - *run.begin() + 1) - run.size();
    }
};

void check_rtp(Input input) {
    capture::RtpSource source;
    RtpModel model;
    capture::RtpHead head;
    for (std::int64_t now = 0; !input.empty();) {
        const auto step = input.take<std::int8_t>();
        const bool is_jump = step == -128;
        head.sequence = static_cast<std::uint16_t>(head.sequence +
                                                   (is_jump ? input.take<std::int16_t>() : step));
        head.timestamp += input.take<std::uint16_t>();
        now += input.take<std::int16_t>();
        source.add(head, now, 90000);
        model.add(head.sequence);
        require(
            source.packets() == model.packets && source.lost() == model.lost_before + model.lost(),
            "lost packets");
        require(source.disordered() == model.late && source.duplicates() == model.duplicates,
                "late packets");
        require(source.restarts() == model.restarts && source.strays() == model.strays, "restarts");
        require(source.jitter_us() >= 0 && source.jitter_most_us() >= source.jitter_mean_us(),
                "jitter");
    }
}

void append16(Content& bytes, std::size_t number) {
    bytes.push_back(static_cast<std::uint8_t>(number >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(number));
}

// A frame with an IPv4 header around a payload, in a VLAN or not.
Content frame_around(Input& input, std::uint8_t protocol, const Content& payload) {
    Content frame(12, 2);
    const auto shape = input.take<std::uint8_t>();
    if ((shape & 1U) != 0) {
        append16(frame, 0x8100);
        append16(frame, shape & 2U);
    }
    append16(frame, 0x0800);
    frame.insert(frame.end(), {0x45, 0});
    append16(frame, 20 + payload.size());
    frame.insert(frame.end(), {0, 0, 0, 0, 64, protocol, 0, 0, 10, 0, 0,
                               static_cast<std::uint8_t>(shape >> 2U & 3U), 239, 0, 0,
                               static_cast<std::uint8_t>(shape >> 4U & 3U)});
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

// RTP, transport stream packets, both or neither.
Content datagram(Input& input) {
    const auto shape = input.take<std::uint8_t>();
    Content content;
    if ((shape & 1U) != 0) {
        content = {0x80, static_cast<std::uint8_t>(shape & 2U ? 33 : 96),
                   0,    input.take<std::uint8_t>(),
                   0,    0,
                   0,    0,
                   0,    0,
                   0,    static_cast<std::uint8_t>(shape >> 6U)};
    }
    for (unsigned i = 0; i < (shape >> 2U & 3U); ++i) {
        const Bytes bytes = input.take_bytes(24);
        Content packet(bytes.begin(), bytes.end());
        packet.resize(kPacketSize, 0xFF);
        packet[0] = (shape & 16U) != 0 ? packet[0] : 0x47;
        content.insert(content.end(), packet.begin(), packet.end());
    }
    const Bytes rest = input.take_bytes((shape & 32U) != 0 ? 9 : 0);
    content.insert(content.end(), rest.begin(), rest.end());
    Content udp = {0x13, 0x88, 0x04, 0xD2};
    append16(udp, 8 + content.size());
    append16(udp, 0);
    udp.insert(udp.end(), content.begin(), content.end());
    return udp;
}

Content frame_of(Input& input) {
    const std::size_t kind = input.take_below(4);
    if (kind < 2) {
        return frame_around(input, capture::kProtocolUdp, datagram(input));
    }
    const Bytes bytes = input.take_bytes(input.take<std::uint8_t>());
    const Content content(bytes.begin(), bytes.end());
    return kind == 2 ? content : frame_around(input, capture::kProtocolIgmp, content);
}

void check_sums(const Streams& streams, std::uint64_t fed) {
    std::uint64_t packets = streams.forgotten_packets();
    for (const Streams::Flows::Entry& entry : streams.flows().entries()) {
        const Flow& flow = entry.value;
        packets += flow.packets();
        require(flow.gaps().count() < flow.packets(), "gaps");
        std::uint64_t gaps = 0;
        for (const std::uint64_t count : flow.gaps().histogram()) {
            gaps += count;
        }
        require(gaps == flow.gaps().count(), "the histogram of gaps");
    }
    require(packets == fed, "every datagram is counted");
    require(streams.flows().entries().size() <= kLimits.flows &&
                streams.sources().entries().size() <= kLimits.sources &&
                streams.pids().entries().size() <= kLimits.pids &&
                streams.members().map().entries().size() <= kLimits.members,
            "the tables are small");
    for (const auto& entry : streams.sources().entries()) {
        const capture::RtpSource& source = entry.value;
        require(source.lost() < source.packets() * capture::RtpSource::kLargestStep,
                "lost packets");
    }
}

void check_json(const Streams& streams, bool is_summary) {
    const tools::Json made = streams.json(is_summary);
    char* const text = cJSON_PrintUnformatted(made.get());
    require(text != nullptr, "JSON");
    const tools::Json read(cJSON_Parse(text));
    require(cJSON_Compare(made.get(), read.get(), 1) != 0, "the JSON means the same");
    cJSON_free(text);
}

void check_screen(Input& control, capture::LiveTable& live, const Streams& streams) {
    live.set(streams.headline(false), streams.sheets(false));
    live.on_key(control.take<std::uint8_t>());
    live.on_key(terminal::kKeyUp + control.take<std::uint8_t>() % 6);
    const std::size_t width = control.take<std::uint8_t>();
    const std::size_t height = control.take<std::uint8_t>() % 60;
    const std::vector<terminal::ScreenLine> lines = live.draw(width, height);
    require(lines.size() <= height, "the lines fit");
    for (const terminal::ScreenLine& line : lines) {
        require(line.text.size() <= width, "a line fits");
        require(std::ranges::all_of(line.text, [](char c) { return c >= ' ' && c <= '~'; }),
                "a line is clean");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static zx::fuzz::GuardedMemory memory(4096);
    Input input({data, size});
    check_rtp(input);
    Streams streams(capture::RtpClocks{}, kLimits);
    capture::LiveTable live;
    std::int64_t now = 0;
    std::uint64_t fed = 0;
    while (!input.empty()) {
        const auto what = input.take<std::uint8_t>();
        now = (what & 0x80U) != 0 ? input.take<std::int64_t>() >> 3U : now + what;
        const Content content = frame_of(input);
        const std::size_t captured = (what & 0x40U) != 0
                                         ? input.take<std::uint16_t>() % (content.size() + 1)
                                         : content.size();
        Frame frame;
        frame.bytes = {memory.copy(Bytes(content).first(captured)), captured};
        frame.length = static_cast<std::uint32_t>(content.size());
        const Packet packet = capture::dissect(frame);
        streams.add(frame, packet, now);
        fed +=
            packet.depth == capture::Depth::transport && packet.transport == capture::Transport::udp
                ? 1U
                : 0U;
        if ((what & 0x20U) != 0) {
            streams.end_second(now, 1 + what % 4);
            check_json(streams, false);
            check_screen(input, live, streams);
        }
    }
    check_sums(streams, fed);
    check_json(streams, true);
    check_screen(input, live, streams);
    return 0;
}
