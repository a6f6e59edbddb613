// Builds frames from any record and any request into buffers of the size that the header asks for,
// and completes what is to be valid on the wire. Records, addresses and checksums are compared with
// those of plain models.
#include <array>
#include <string>
#include <vector>

#include "frame_model.hpp"
#include "support.hpp"

namespace {

using zx::fuzz::be16;
using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kRoom = 1U << 17U;
constexpr std::uint8_t kUntouched = 0xA5;
constexpr std::size_t kIpv4At = 14;
constexpr std::size_t kArpTarget = 38;

GuardedMemory& frames() {
    static GuardedMemory memory(kRoom);
    return memory;
}

bool is_untouched(const std::uint8_t* frame, std::size_t size) {
    return std::all_of(frame, frame + size, [](std::uint8_t byte) { return byte == kUntouched; });
}

// RFC 1071, a word at a time: 0 for bytes that hold their right checksum.
std::uint16_t checksum(const std::uint8_t* at, std::size_t size, std::uint32_t sum = 0) {
    for (std::size_t i = 0; i < size; ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(at[i]) << 8U : at[i];
    }
    while (sum > 0xFFFF) {
        sum = (sum >> 16U) + (sum & 0xFFFFU);
    }
    return static_cast<std::uint16_t>(~sum);
}

// A frame of IPv4 with TCP or UDP that any receiver takes.
void require_valid(const std::uint8_t* frame, std::size_t size) {
    const std::uint8_t* const ip = frame + kIpv4At;
    const std::size_t ip_size = 4U * (ip[0] & 15U);
    require(be16(ip + 2) == size - kIpv4At, "the total length");
    require(checksum(ip, ip_size) == 0, "the checksum of the IPv4 header");
    const std::size_t transport = size - kIpv4At - ip_size;
    std::uint32_t sum = ip[9] + static_cast<std::uint32_t>(transport);
    for (std::size_t at = 12; at < 20; at += 2) {
        sum += be16(ip + at);
    }
    require(checksum(ip + ip_size, transport, sum) == 0, "the checksum of the transport");
}

// A text of a request, in memory of exactly its size.
class Text {
public:
    explicit Text(Input& control, bool may_miss = true) {
        constexpr std::array<const char*, 9> kTexts{
            "10.0.0.1",       "192.168.100.200",   "239.1.2.3",       "255.255.255.255", "",
            "256.1.1.1.1.1x", "01:00:5e:01:02:03", "0:1a:b:c:d:e:f:", "ff-FF-123-g-0x-"};
        const auto form = control.take<std::uint8_t>() % (kTexts.size() + 2);
        is_null_ = form == kTexts.size() && may_miss;
        text_ = form < kTexts.size() ? kTexts[form] : control.take_text(8);
        text_.shrink_to_fit();
    }
    [[nodiscard]] const char* get() const { return is_null_ ? nullptr : text_.c_str(); }
    // Into a field, which it may fill without an end.
    void put(char (&field)[ZXFRAME_NAME_SIZE], bool fills) const {
        std::memset(field, fills ? 'x' : 0, sizeof field);
        std::copy(text_.begin(), text_.end(), field);
    }

private:
    std::string text_;
    bool is_null_;
};

// Everything that a builder takes, from one input.
struct Job {
    Job(ether_ctt& to, Input& input, Bytes payload)
        : record(to),
          control(input),
          frame(payload),
          variant(control.take<std::uint8_t>()),
          dest_mac(control),
          source_mac(control),
          source_ip(control),
          dest_ip(control) {}

    ether_ctt& record;
    Input& control;
    Bytes frame;
    std::uint8_t variant;
    Text dest_mac, source_mac, source_ip, dest_ip;

    [[nodiscard]] bool has_texts() const {
        return dest_mac.get() != nullptr && source_mac.get() != nullptr &&
               source_ip.get() != nullptr && dest_ip.get() != nullptr;
    }
};

struct Options {
    std::size_t written = 0;  // bytes that the options of a request take
    std::size_t claimed = 0;  // bytes that the header length makes of them
    [[nodiscard]] std::size_t room() const { return std::max(written, claimed); }
};

// The texts that a frame was built from stand in it as the C library reads them.
void require_addresses(const Job& job, const std::uint8_t* frame, std::size_t source_at,
                       std::size_t dest_at) {
    const auto require_mac = [](const char* at, const std::uint8_t* built) {
        for (int i = 0; i < ZXFRAME_MAC_SIZE; ++i) {
            char* end = nullptr;
            require(built[i] == (std::strtoul(at, &end, 16) & 0xFFU), "a MAC address");
            at = *end != '\0' ? end + 1 : end;
        }
    };
    const auto require_ip = [](const char* text, const std::uint8_t* built) {
        const in_addr_t address = inet_addr(text);
        require(std::memcmp(&address, built, sizeof address) == 0, "an address");
    };
    if (dest_at != kArpTarget) {
        require_mac(job.dest_mac.get(), frame);
    }
    require_mac(job.source_mac.get(), frame + 6);
    require_ip(job.source_ip.get(), frame + source_at);
    require_ip(job.dest_ip.get(), frame + dest_at);
}

// A record that decoding its frame once more does not change. Gives what that says.
std::string require_decoded(const ether_ctt& record, const std::uint8_t* frame, std::size_t size) {
    static GuardedMemory records(sizeof(ether_ctt));
    static GuardedMemory wires(ZXFRAME_READABLE);
    auto& again = records.record<ether_ctt>(0);
    std::memcpy(&again, &record, sizeof again);
    again.tcp.option_count = ZXFRAME_TCP_OPTIONS;  // what was built is not appended
    zx::fuzz::FrameModel model(again, zxlog_api_getLoglevel());
    model.frame(
        wires.copy({frame, std::min<std::size_t>(size, ZXFRAME_READABLE)}, ZXFRAME_READABLE));
    again.tcp.option_count = record.tcp.option_count;
    require(std::memcmp(&again, &record, sizeof again) == 0, "the record of the frame");
    return model.said();
}

// With the pseudo-header in front, as the header describes it.
void require_checksums(const ether_ctt& record, const std::uint8_t* tcp) {
    const ipv4_view& ip = record.ipv4;
    const std::size_t size = std::min<std::size_t>(record.data_len, ZXFRAME_DATA_SIZE);
    const std::size_t header = 4U * record.tcp.doff;
    std::vector<std::uint8_t> all;
    const auto put16 = [&all](std::uint32_t value) {
        all.push_back(static_cast<std::uint8_t>(value >> 8U));
        all.push_back(static_cast<std::uint8_t>(value));
    };
    for (const std::uint32_t half :
         {ip.saddr >> 16U, ip.saddr, ip.daddr >> 16U, ip.daddr, std::uint32_t{ip.protocol},
          static_cast<std::uint32_t>(header + size)}) {
        put16(half);
    }
    all.insert(all.end(), tcp, tcp + header);
    all.insert(all.end(), record.data, record.data + size);
    require(zxframe_api_tcpChecksum(&record, tcp) == checksum(all.data(), all.size()),
            "the TCP checksum");

    all.clear();
    const std::uint32_t source = ntohl(ip.saddr);
    const std::uint32_t dest = ntohl(ip.daddr);
    const udp_view& udp = record.udp;
    for (const std::uint32_t half :
         {source >> 16U, source, dest >> 16U, dest, std::uint32_t{ip.protocol},
          static_cast<std::uint32_t>(size + 8), std::uint32_t{udp.source}, std::uint32_t{udp.dest},
          std::uint32_t{udp.len}, std::uint32_t{udp.check}}) {
        put16(half);
    }
    all.insert(all.end(), record.data, record.data + (size + 1) / 2 * 2);
    require(zxframe_api_udpChecksum(&record, tcp) == checksum(all.data(), all.size()),
            "the UDP checksum");
}

// Options of the decoded frame, or any.
Options set_options(const Job& job, zxbuildtcp_ctt& request) {
    Input from(job.frame);
    request.option_count = job.control.take<std::uint8_t>();
    Options options;
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(request.option_count, 128); ++i) {
        tcp_option& option = request.options[i];
        option = job.record.tcp.options[i];
        if (job.variant % 2 != 0) {
            option.kind = from.take<std::uint8_t>() % 32;
            option.len = from.take<std::uint8_t>();
        }
        const bool has_length = option.kind > 1;
        if ((option.kind <= 10 || option.kind == 28) && (!has_length || option.len >= 2)) {
            options.written += has_length ? option.len : 1;
        }
    }
    request.option_len = job.variant % 4 < 2 ? static_cast<std::uint32_t>(options.written)
                                             : job.control.take<std::uint32_t>();
    const std::size_t words = (request.option_len / 4 + 5) % 16;
    options.claimed = words > 5 ? 4 * (words - 5) : 0;
    return options;
}

zxbuildtcp_ctt& tcp_request(Job& job) {
    static GuardedMemory memory(sizeof(zxbuildtcp_ctt));
    auto& request = memory.record<zxbuildtcp_ctt>(0);
    request.str_dest_mac = job.dest_mac.get();
    request.str_source_mac = job.source_mac.get();
    request.source_ip = job.source_ip.get();
    request.dest_ip = job.dest_ip.get();
    request.source = job.control.take<std::uint16_t>();
    request.dest = job.control.take<std::uint16_t>();
    request.seq = job.control.take<std::uint32_t>();
    request.ack_seq = job.control.take<std::uint32_t>();
    request.flags = job.control.take<std::uint32_t>();
    return request;
}

// Completes a frame of which the headers stand in `headers`.
void finish(const Job& job, Bytes headers) {
    const auto size = job.variant % 8 == 0 ? job.control.take<std::uint32_t>()
                                           : job.control.take<std::uint16_t>() % 2048U;
    const std::size_t room = size <= 65535 ? size : 0;  // more fits into no packet
    static GuardedMemory payloads(kRoom);
    const std::uint8_t* const payload =
        payloads.copy(job.frame.first(std::min(job.frame.size(), room)), room);
    std::uint8_t* const frame = frames().copy(headers, headers.size() + room);
    const std::string before(frame, frame + headers.size());
    const std::int32_t length = zxframe_api_finishTcp(frame, payload, size);
    if (length < 0) {
        require(before == std::string(frame, frame + headers.size()), "a frame as it was");
        return;
    }
    require(length == static_cast<std::int32_t>(headers.size() + size), "the finished length");
    require_valid(frame, static_cast<std::size_t>(length));
}

void build_tcp(Job& job) {
    zxbuildtcp_ctt& request = tcp_request(job);
    const std::size_t size = 54 + set_options(job, request).room();
    std::uint8_t* const out = frames().fill(size, kUntouched);
    const std::int32_t length = zxframe_api_buildTcp(&job.record, &request, out);
    require((length == -1) == !job.has_texts(), "what is needed for TCP");
    if (length == -1) {
        require(is_untouched(out, size), "nothing written");
        return;
    }
    require(length == static_cast<std::int32_t>(34 + 4 * job.record.tcp.doff + job.record.data_len),
            "the length of a segment");
    require_addresses(job, out, 26, 30);
    require_decoded(job.record, out, 54);
    const std::size_t headers = 34 + 4U * (out[46] >> 4U);
    if (headers >= 54) {
        const std::string built(out, out + headers);
        finish(job, {reinterpret_cast<const std::uint8_t*>(built.data()), headers});
    }
}

// Any frame of the input, with as many bytes as its header lengths tell.
void finish_any(Job& job) {
    std::uint8_t headers[kIpv4At + 60 + 60]{};
    std::copy_n(job.frame.begin(), std::min(job.frame.size(), sizeof headers), headers);
    const bool is_tcp = be16(headers + 12) == 0x0800 && headers[kIpv4At + 9] == 6;
    const std::size_t ip_size = 4U * (headers[kIpv4At] & 15U);
    const std::size_t tcp_size = 4U * (headers[kIpv4At + ip_size + 12] >> 4U);
    const std::size_t size = !is_tcp         ? kIpv4At + 20
                             : ip_size < 20  ? kIpv4At + 20
                             : tcp_size < 20 ? kIpv4At + ip_size + 20
                                             : kIpv4At + ip_size + tcp_size;
    finish(job, {headers, size});
}

void build_udp(Job& job) {
    static GuardedMemory memory(sizeof(ether_pkt));
    auto& request = memory.record<ether_pkt>(0);
    const bool is_endless = job.variant % 8 == 7;
    job.dest_mac.put(request.str_dest_mac, is_endless);
    job.source_mac.put(request.str_source_mac, false);
    job.source_ip.put(request.source_ip, false);
    job.dest_ip.put(request.dest_ip, false);
    request.source = job.control.take<std::uint16_t>();
    request.dest = job.control.take<std::uint16_t>();
    const std::size_t payload = job.record.data_len;
    std::uint8_t* const out = frames().fill(42, kUntouched);
    if (zxframe_api_buildUdp(&job.record, &request, out) == -1) {
        require(is_endless && is_untouched(out, 42), "nothing written");
        return;
    }
    require(zx::fuzz::take_said() == require_decoded(job.record, out, 42), "the lines");
    if (payload % 2 == 0 && payload <= ZXFRAME_DATA_SIZE) {
        std::string frame(out, out + 42);
        frame.append(job.record.data, job.record.data + payload);
        require_valid(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size());
    }
}

void build_arp(Job& job) {
    std::uint8_t* const out = frames().fill(42, kUntouched);
    const std::int32_t length = zxframe_api_buildArp(&job.record, job.source_mac.get(),
                                                     job.source_ip.get(), job.dest_ip.get(), out);
    require(length == (job.source_mac.get() != nullptr ? 42 : 0), "the length of an ARP request");
    if (length == 0) {
        require(is_untouched(out, 42), "nothing written");
        return;
    }
    require(zx::fuzz::take_said() == require_decoded(job.record, out, 42), "the lines");
    if (job.has_texts()) {
        require_addresses(job, out, 28, kArpTarget);
    }
}

void build_ack(Job& job) {
    std::uint8_t* const out = frames().fill(54, kUntouched);
    job.record.ipv4.frag_off = 0;
    require(zxframe_api_buildTcpAck(&job.record, out) == 54, "an acknowledgment");
    require_valid(out, 54);
}

void build_data(Job& job) {
    const std::size_t payload = job.record.data_len;
    std::uint8_t* const out = frames().fill(54, kUntouched);
    require(zxframe_api_buildTcpData(&job.record, out) == static_cast<std::int32_t>(54 + payload),
            "a segment");
    if (payload <= ZXFRAME_DATA_SIZE) {
        std::string frame(out, out + 54);
        frame.append(job.record.data, job.record.data + payload);
        require_valid(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size());
    }
}

void build_igmp(Job& job) {
    static GuardedMemory memory(sizeof(igmp_req));
    auto& request = memory.record<igmp_req>(0);
    request.str_dest_mac = job.dest_mac.get();
    request.str_source_mac = job.source_mac.get();
    request.source_ip = job.source_ip.get();
    request.group = job.dest_ip.get();
    request.version = job.control.take<std::uint8_t>() % 5;
    request.action = job.control.take<std::uint8_t>() % 5;
    request.mode = job.control.take<std::uint8_t>() % 3;
    const bool has_many = job.variant % 8 == 7;
    request.source_count = static_cast<std::uint16_t>(
        job.control.take<std::uint16_t>() % (has_many ? 65536U : ZXFRAME_IGMP_SOURCES + 1U));
    const bool has_too_many = request.source_count > ZXFRAME_IGMP_SOURCES;
    for (std::size_t i = 0; !has_too_many && i < request.source_count; ++i) {
        (i % 2 == 0 ? job.source_ip : job.dest_ip).put(request.sources[i], false);
    }
    const std::size_t sources = has_too_many ? 0 : request.source_count;
    const std::size_t size = 54 + 4 * sources;
    std::uint8_t* const out = frames().fill(size, kUntouched);
    const std::int32_t length = zxframe_api_buildIgmp(&job.record, &request, out);
    require((length == -1) == (has_too_many || !job.has_texts()), "what is needed for IGMP");
    if (length == -1) {
        require(is_untouched(out, size), "nothing written");
        return;
    }
    require(checksum(out + kIpv4At, 24) == 0, "the checksum of the IPv4 header");
    const auto message = static_cast<std::size_t>(length) - 38;
    require(message == 0 || message == 8 || message == 16 + 4 * sources, "the message's length");
    require(message == 0 || checksum(out + 38, message) == 0, "the checksum of the message");
}

// The parts of the builders, each with the room that it asks for.
void build_parts(Job& job) {
    ether_ctt& record = job.record;
    const auto put = [](std::size_t size) { return frames().fill(size, kUntouched); };
    zxframe_innerapi_buildEthrt(&record, job.dest_mac.get(), job.source_mac.get(),
                                job.control.take<std::uint16_t>(), put(14));
    zxframe_innerapi_buildIpv4(&record, job.variant, job.source_ip.get(), job.dest_ip.get(),
                               job.control.take<std::uint32_t>(), put(job.variant == 2 ? 24 : 20));
    igmp_view view = record.igmp;
    zxframe_innerapi_getIgmpData1(&record, &view, put(8));
    const std::size_t sources = std::min<std::size_t>(view.source_count, ZXFRAME_IGMP_SOURCES);
    require(
        zxframe_innerapi_getIgmpData2(&record, &view, put(16 + 4 * sources)) == 16 + 4 * sources,
        "a report");

    zxbuildtcp_ctt& request = tcp_request(job);
    const Options options = set_options(job, request);
    require(zxframe_innerapi_buildTcpOpt(&request, put(options.written)) == options.written,
            "the options");
    zxframe_innerapi_buildTcpPayload(&record, &request, put(20 + options.room()));
    require_checksums(record, put(4 * record.tcp.doff));
    ether_pkt ports{};
    ports.source = request.source;
    zxframe_innerapi_buildUdpPayload(&record, &ports, put(8));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory records(sizeof(ether_ctt));
    static GuardedMemory wires(ZXFRAME_READABLE);

    Input input({data, size});
    Input control(input.take_bytes(zx::fuzz::kControlSize));
    const Bytes frame = input.rest().first(std::min<std::size_t>(input.rest().size(), 2048));
    zxlog_api_setLoglevel(control.take<std::uint8_t>() % 6);
    const auto builder = control.take<std::uint8_t>();
    const auto flags = control.take<std::uint8_t>();
    const auto fill = control.take<std::uint8_t>();
    const auto data_len = control.take<std::uint16_t>();

    auto& record = records.record<ether_ctt>(fill);
    record.print_flag = static_cast<std::int8_t>(flags % 2);
    record.tcp.option_count = 0;
    if (flags % 4 < 2) {
        const Bytes wire = frame.first(std::min<std::size_t>(frame.size(), ZXFRAME_READABLE));
        zxframe_api_doFrame(&record, wires.copy(wire, ZXFRAME_READABLE));
    }
    if (flags % 8 < 4) {
        record.data_len = data_len;
    }
    std::copy(frame.begin(), frame.end(), record.data);

    Job job(record, control, frame);
    zx::fuzz::take_said();
    constexpr void (*kBuilders[])(Job&) = {build_tcp,  build_udp,  build_arp,  build_ack,
                                           build_data, build_igmp, finish_any, build_parts};
    kBuilders[builder % std::size(kBuilders)](job);
    return 0;
}
