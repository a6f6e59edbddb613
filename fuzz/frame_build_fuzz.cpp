// Builds frames from any record and any request, into buffers of the size that the header asks for.
// Then completes the frames that must be valid on the wire. Every byte of the frames, the records
// and the log lines are compared with those of plain models. If ZX_FRAMES names a file, the whole
// frames of the seeds are written to it as a capture.
#include <array>
#include <random>
#include <string>
#include <utility>
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
constexpr std::size_t kTcpAt = 34;

GuardedMemory& frames() {
    static GuardedMemory memory(kRoom);
    return memory;
}

bool is_untouched(const std::uint8_t* frame, std::size_t size) {
    return std::all_of(frame, frame + size, [](std::uint8_t byte) { return byte == kUntouched; });
}

// RFC 1071, a word at a time. The result is 0 for bytes that include their correct checksum.
std::uint16_t checksum(const std::uint8_t* at, std::size_t size, std::uint32_t sum = 0) {
    for (std::size_t i = 0; i < size; ++i) {
        sum += i % 2 == 0 ? static_cast<std::uint32_t>(at[i]) << 8U : at[i];
    }
    while (sum > 0xFFFF) {
        sum = (sum >> 16U) + (sum & 0xFFFFU);
    }
    return static_cast<std::uint16_t>(~sum);
}

// Checks a frame of IPv4 with TCP or UDP as any receiver would.
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

std::FILE* g_frames = [] {
    const char* const path = std::getenv("ZX_FRAMES");
    std::FILE* const file = path != nullptr ? std::fopen(path, "w") : nullptr;
    if (file != nullptr) {
        constexpr struct {
            std::uint32_t magic;
            std::uint16_t version[2];
            std::uint32_t rest[4];
        } kHeader = {0xA1B2C3D4, {2, 4}, {0, 0, 65535, 1}};
        std::fwrite(&kHeader, sizeof kHeader, 1, file);
    }
    return file;
}();

// Writes a frame with its payload to the capture, for tshark to read.
void keep(const std::uint8_t* frame, std::size_t size, Bytes payload = {}) {
    if (g_frames != nullptr) {
        std::string whole(frame, frame + size);
        whole.append(payload.begin(), payload.end());
        const auto length = static_cast<std::uint32_t>(whole.size());
        const std::uint32_t header[] = {0, 0, length, length};
        std::fwrite(header, sizeof header, 1, g_frames);
        std::fwrite(whole.data(), whole.size(), 1, g_frames);
    }
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
        if (is_null_) {
            text_.clear();  // in a field, a text that is missing is empty
        }
        text_.shrink_to_fit();
    }
    [[nodiscard]] const char* get() const { return is_null_ ? nullptr : text_.c_str(); }
    // Writes the text into a field. With `fills` the field has no NUL.
    template <std::size_t kSize>
    void put(char (&field)[kSize], bool fills = false) const {
        std::memset(field, fills ? 'x' : 0, sizeof field);
        std::copy(text_.begin(), text_.end(), field);
    }

private:
    std::string text_;
    bool is_null_;
};

// Everything that a builder gets, taken from one input.
struct Job {
    Job(ether_ctt& to, const ether_ctt& old, Input& input, Bytes payload)
        : record(to),
          before(old),
          control(input),
          frame(payload),
          variant(control.take<std::uint8_t>()),
          dest_mac(control),
          source_mac(control),
          source_ip(control),
          dest_ip(control) {}

    ether_ctt& record;
    const ether_ctt& before;  // the record before the call
    Input& control;
    Bytes frame;
    std::uint8_t variant;
    Text dest_mac, source_mac, source_ip, dest_ip;

    // The name of the first missing text, or NULL. IGMP has another name for the last one.
    [[nodiscard]] const char* missing(const char* last = "dest_ip") const {
        return dest_mac.get() == nullptr     ? "str_dest_mac"
               : source_mac.get() == nullptr ? "str_source_mac"
               : source_ip.get() == nullptr  ? "source_ip"
               : dest_ip.get() == nullptr    ? last
                                             : nullptr;
    }
};

// Checks that this is the only log line so far, and that nothing was written to `out`.
[[gnu::format(printf, 3, 4)]] void require_refused(const std::uint8_t* out, std::size_t size,
                                                   const char* fmt, ...) {
    zx::fuzz::Lines lines{"NETFRAME", zxlog_api_getLoglevel()};
    std::va_list args;
    va_start(args, fmt);
    lines.add(1, fmt, args);
    va_end(args);
    require(zx::fuzz::take_said() == lines.said && is_untouched(out, size), "a refusal");
}

struct Options {
    std::string bytes;        // the options of a request
    std::size_t claimed = 0;  // bytes of options by the header length
    [[nodiscard]] std::size_t room() const { return std::max(bytes.size(), claimed); }
};

// The expected frame, put together byte by byte.
class Plain {
public:
    void u8(std::uint32_t value) { bytes_ += static_cast<char>(value & 0xFFU); }
    void u16(std::uint32_t value) {
        u8(value >> 8U);
        u8(value);
    }
    void u32(std::uint32_t value) {
        u16(value >> 16U);
        u16(value);
    }
    void raw(const void* bytes, std::size_t size) {
        bytes_.append(static_cast<const char*>(bytes), size);
    }
    // Texts are read with the functions of the C library.
    void mac(const char* at) {
        for (int i = 0; i < ZXFRAME_MAC_SIZE; ++i) {
            char* end = nullptr;
            u8(static_cast<std::uint32_t>(std::strtoul(at, &end, 16)));
            at = *end != '\0' ? end + 1 : end;
        }
    }
    void ip(const char* text) { u32(text != nullptr ? ntohl(inet_addr(text)) : INADDR_NONE); }
    void put16(std::size_t at, std::uint32_t value) {
        bytes_[at] = static_cast<char>(value >> 8U & 0xFFU);
        bytes_[at + 1] = static_cast<char>(value & 0xFFU);
    }
    [[nodiscard]] const std::uint8_t* at(std::size_t offset) const {
        return reinterpret_cast<const std::uint8_t*>(bytes_.data()) + offset;
    }
    [[nodiscard]] std::size_t size() const { return bytes_.size(); }

    // All bytes after the frame must be untouched.
    void require_is(const std::uint8_t* out, std::size_t size, const char* what) const {
        require(std::memcmp(out, bytes_.data(), bytes_.size()) == 0, what);
        require(is_untouched(out + bytes_.size(), size - bytes_.size()), "nothing after it");
    }

private:
    std::string bytes_;
};

Plain ethernet(const Job& job, std::uint32_t type) {
    Plain plain;
    plain.mac(job.dest_mac.get());
    plain.mac(job.source_mac.get());
    plain.u16(type);
    return plain;
}

// The header of an unsupported protocol has the length 0.
void add_ipv4(Plain& plain, const Job& job, unsigned protocol, std::uint32_t counted) {
    const ipv4_view& ip = job.before.ipv4;
    const bool is_known = protocol == 6 || protocol == 17 || protocol == 2;
    const std::uint32_t words = protocol == 2 ? 6 : is_known ? 5 : 0;
    const std::uint32_t flags = protocol == 2 ? 0 : is_known ? 2 : ip.flags;
    const std::size_t begin = plain.size();
    plain.u8(0x40U | words);
    plain.u8(0);
    plain.u16(4 * words + (protocol == 17 ? 8 : counted) + job.before.data_len);
    plain.u16(ip.id + 0x1361U);
    plain.u16(flags << 13U | (protocol == 17 ? 0 : ip.frag_off));
    plain.u8(protocol == 2 ? 1 : is_known ? 64 : ip.ttl);
    plain.u8(protocol);
    plain.u16(0);
    plain.ip(job.source_ip.get());
    plain.ip(job.dest_ip.get());
    if (protocol == 2) {
        plain.u32(0x94040000);  // router alert
    }
    plain.put16(begin + 10, checksum(plain.at(begin), std::size_t{4} * words));
}

// Checks that decoding the frame again does not change the record. Returns the lines that decoding
// logs.
using Steps = void (*)(zx::fuzz::FrameModel&, const std::uint8_t*);
std::string require_decoded(
    const ether_ctt& record, const std::uint8_t* frame, std::size_t size,
    Steps steps = [](zx::fuzz::FrameModel& model, const std::uint8_t* wire) {
        model.frame(wire);
    }) {
    static GuardedMemory records(sizeof(ether_ctt));
    static GuardedMemory wires(ZXFRAME_READABLE);
    auto& again = records.record<ether_ctt>(0);
    std::memcpy(&again, &record, sizeof again);
    again.tcp.option_count = ZXFRAME_TCP_OPTIONS;  // full, so the frame's options are not appended
    zx::fuzz::FrameModel model(again, zxlog_api_getLoglevel());
    steps(model,
          wires.copy({frame, std::min<std::size_t>(size, ZXFRAME_READABLE)}, ZXFRAME_READABLE));
    again.tcp.option_count = record.tcp.option_count;
    require(std::memcmp(&again, &record, sizeof again) == 0, "the record of the frame");
    return model.said();
}

// Sums the pseudo-header first, as the header file describes it.
std::uint16_t tcp_sum(const ether_ctt& record, const std::uint8_t* tcp) {
    const ipv4_view& ip = record.ipv4;
    const std::size_t size = std::min<std::size_t>(record.data_len, ZXFRAME_DATA_SIZE);
    const std::size_t header = 4U * record.tcp.doff;
    Plain all;
    all.u32(ip.saddr);
    all.u32(ip.daddr);
    all.u16(ip.protocol);
    all.u16(static_cast<std::uint32_t>(header + size));
    all.raw(tcp, header);
    all.raw(record.data, size);
    return checksum(all.at(0), all.size());
}

// The byte after an odd payload counts, too.
std::uint16_t udp_sum(const ether_ctt& record) {
    const ipv4_view& ip = record.ipv4;
    const udp_view& udp = record.udp;
    const std::size_t size = std::min<std::size_t>(record.data_len, ZXFRAME_DATA_SIZE);
    Plain all;
    all.u32(ntohl(ip.saddr));
    all.u32(ntohl(ip.daddr));
    all.u16(ip.protocol);
    all.u16(static_cast<std::uint32_t>(size + 8));
    for (const std::uint32_t field : {udp.source, udp.dest, udp.len, udp.check}) {
        all.u16(field);
    }
    all.raw(record.data, (size + 1) / 2 * 2);
    return checksum(all.at(0), all.size());
}

void require_checksums(const ether_ctt& record, const std::uint8_t* tcp) {
    require(zxframe_api_tcpChecksum(&record, tcp) == tcp_sum(record, tcp), "the TCP checksum");
    require(zxframe_api_udpChecksum(&record, tcp) == udp_sum(record), "the UDP checksum");
}

// Adds a header and its options. When the header length claims more bytes of options, those that
// were in the buffer follow.
void add_tcp(Plain& plain, const Job& job, const zxbuildtcp_ctt& request, const Options& options) {
    constexpr std::uint32_t kFlags[] = {ZXFRAME_TCP_FIN, ZXFRAME_TCP_SYN, ZXFRAME_TCP_RST,
                                        ZXFRAME_TCP_PSH, ZXFRAME_TCP_ACK, ZXFRAME_TCP_URG};
    const std::size_t begin = plain.size();
    plain.u16(request.source);
    plain.u16(request.dest);
    plain.u32(request.seq);
    plain.u32(request.ack_seq);
    plain.u8((request.option_len / 4 + 5) % 16 << 4U);
    std::uint32_t flags = 0;
    for (std::size_t i = 0; i < std::size(kFlags); ++i) {
        flags |= (request.flags & kFlags[i]) != 0 ? 1U << i : 0;
    }
    plain.u8(flags);
    plain.u16(64240);
    plain.u32(0);
    plain.raw(options.bytes.data(), options.bytes.size());
    for (std::size_t i = options.bytes.size(); i < options.claimed; ++i) {
        plain.u8(kUntouched);
    }
    static ether_ctt summed;
    summed = job.record;
    summed.data_len = job.before.data_len;
    plain.put16(begin + 16, tcp_sum(summed, plain.at(begin)));
}

// Takes the options from the decoded frame, or any options from the input.
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
            options.bytes += static_cast<char>(option.kind);
            if (has_length) {
                options.bytes += static_cast<char>(option.len);
                options.bytes.append(reinterpret_cast<const char*>(option.val), option.len - 2U);
            }
        }
    }
    request.option_len = job.variant % 4 < 2 ? static_cast<std::uint32_t>(options.bytes.size())
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

// Completes a frame that has `headers` and a payload, which is elsewhere or near its place.
// `is_whole`: it is a TCP frame with complete headers.
void finish(const Job& job, Bytes headers, bool is_whole) {
    // Any size, a size around the largest that fits, or a usual size.
    const auto most = static_cast<std::uint32_t>(65535 - (headers.size() - kIpv4At));
    const std::uint32_t size = job.variant % 16 == 0 ? job.control.take<std::uint32_t>()
                               : job.variant % 16 == 8
                                   ? most - 2 + job.control.take<std::uint8_t>() % 4U
                                   : job.control.take<std::uint16_t>() % 2048U;
    const std::size_t room = size <= 65535 ? size : 0;  // no packet takes more
    const std::size_t shift = job.control.take_below(16);
    static GuardedMemory payloads(kRoom);
    const Bytes sent = job.frame.first(std::min(job.frame.size(), room));
    std::uint8_t* const frame = frames().copy(headers, headers.size() + room + shift);
    const std::uint8_t* payload = payloads.copy(sent, room);
    const std::string expected(payload, payload + room);
    if (job.variant % 2 == 0) {
        std::copy(expected.begin(), expected.end(), frame + headers.size() + shift);
        payload = frame + headers.size() + shift;
    }
    const std::string before(frame, frame + headers.size());
    zx::fuzz::take_said();
    const std::int32_t length = zxframe_api_finishTcp(frame, payload, size);
    const bool fits = size <= most;
    require((length < 0) == !(is_whole && fits), "what is finished");
    if (length < 0) {
        zx::fuzz::Lines lines{"NETFRAME", zxlog_api_getLoglevel()};
        if (is_whole) {
            lines.say(1, "A payload of %u bytes does not fit into an IPv4 packet", size);
        } else {
            lines.say(1, "Param error####frame");
        }
        require(zx::fuzz::take_said() == lines.said, "why it is not finished");
        require(before == std::string(frame, frame + headers.size()), "a frame as it was");
        return;
    }
    require(length == static_cast<std::int32_t>(headers.size() + size), "the finished length");
    require(std::string(frame + headers.size(), frame + length) == expected, "the payload");
    require_valid(frame, static_cast<std::size_t>(length));
    keep(frame, static_cast<std::size_t>(length));
}

void build_tcp(Job& job) {
    zxbuildtcp_ctt& request = tcp_request(job);
    const Options options = set_options(job, request);
    const std::size_t size = 54 + options.room();
    std::uint8_t* const out = frames().fill(size, kUntouched);
    const std::int32_t length = zxframe_api_buildTcp(&job.record, &request, out);
    require((length == -1) == (job.missing() != nullptr), "what is needed for TCP");
    if (length == -1) {
        require_refused(out, size, "Param error####%s", job.missing());
        return;
    }
    require(length == static_cast<std::int32_t>(34 + 4 * job.record.tcp.doff + job.record.data_len),
            "the length of a segment");
    Plain plain = ethernet(job, 0x0800);
    add_ipv4(plain, job, 6, request.option_len);
    add_tcp(plain, job, request, options);
    plain.require_is(out, size, "a segment");
    require(zx::fuzz::take_said() ==
                require_decoded(job.record, out, size,
                                [](zx::fuzz::FrameModel& model, const std::uint8_t* wire) {
                                    model.ethernet(wire);
                                    model.ipv4(wire + kIpv4At);
                                    model.dump("-----ptcpheader_ctt->header_len:%d",
                                               wire[kTcpAt + 12] >> 4U);
                                    model.tcp_without_options(wire + kTcpAt);
                                }),
            "the lines of a segment");
    const std::size_t headers = 34 + 4U * (out[46] >> 4U);
    if (headers >= 54) {
        const std::string built(out, out + headers);
        finish(job, {reinterpret_cast<const std::uint8_t*>(built.data()), headers}, true);
    }
}

// Completes any frame of the input. Its header lengths tell how many bytes are there.
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
    finish(job, {headers, size},
           is_tcp && headers[kIpv4At] >> 4U == 4 && ip_size >= 20 && tcp_size >= 20);
}

void build_udp(Job& job) {
    static GuardedMemory memory(sizeof(ether_pkt));
    auto& request = memory.record<ether_pkt>(0);
    // Each bit of a byte makes one text endless.
    const unsigned endless = job.variant % 8 == 7 ? job.control.take<std::uint8_t>() : 0;
    job.dest_mac.put(request.str_dest_mac, (endless & 1U) != 0);
    job.source_mac.put(request.str_source_mac, (endless & 2U) != 0);
    job.source_ip.put(request.source_ip, (endless & 4U) != 0);
    job.dest_ip.put(request.dest_ip, (endless & 8U) != 0);
    request.source = job.control.take<std::uint16_t>();
    request.dest = job.control.take<std::uint16_t>();
    const std::size_t payload = job.record.data_len;
    std::uint8_t* const out = frames().fill(42, kUntouched);
    const std::int32_t length = zxframe_api_buildUdp(&job.record, &request, out);
    constexpr const char* kNames[] = {"str_dest_mac", "str_source_mac", "source_ip", "dest_ip"};
    for (unsigned i = 0; i < std::size(kNames); ++i) {
        if ((endless >> i & 1U) != 0) {
            require(length == -1, "what is needed for UDP");
            return require_refused(out, 42, "Param error####%s", kNames[i]);
        }
    }
    // The length counts the header length that a TCP frame left in the record.
    require(length == static_cast<std::int32_t>(42U + 4U * job.before.tcp.doff + payload),
            "the length of a datagram");
    Plain plain;
    plain.mac(request.str_dest_mac);
    plain.mac(request.str_source_mac);
    plain.u16(0x0800);
    add_ipv4(plain, job, 17, 0);
    plain.u16(request.source);
    plain.u16(request.dest);
    plain.u16(static_cast<std::uint32_t>(payload + 8));
    static ether_ctt summed;
    summed = job.record;
    summed.udp.check = 0;
    plain.u16(udp_sum(summed));
    plain.require_is(out, 42, "a datagram");
    keep(out, 42, Bytes(job.record.data).first(std::min<std::size_t>(payload, ZXFRAME_DATA_SIZE)));
    require(zx::fuzz::take_said() == require_decoded(job.record, out, 42), "the lines");
}

void build_arp(Job& job) {
    std::uint8_t* const out = frames().fill(42, kUntouched);
    const std::int32_t length = zxframe_api_buildArp(&job.record, job.source_mac.get(),
                                                     job.source_ip.get(), job.dest_ip.get(), out);
    require(length == (job.source_mac.get() != nullptr ? 42 : 0), "the length of an ARP request");
    if (length == 0) {
        return require_refused(out, 42, "Param error####str_source_mac");
    }
    Plain plain;
    plain.mac("ff:ff:ff:ff:ff:ff");
    plain.mac(job.source_mac.get());
    plain.u16(0x0806);
    plain.u32(0x00010800);  // Ethernet and IPv4
    plain.u32(0x06040001);  // the sizes of the addresses, a request
    plain.mac(job.source_mac.get());
    plain.ip(job.source_ip.get());
    plain.mac("ff:ff:ff:ff:ff:ff");
    plain.ip(job.dest_ip.get());
    plain.require_is(out, 42, "an ARP request");
    keep(out, 42);
    require(zx::fuzz::take_said() == require_decoded(job.record, out, 42), "the lines");
}

// Checks what is sent after a decoded segment: an answer, or more data.
void require_segment(const Job& job, const std::uint8_t* out, bool is_answer) {
    const ether_ctt& old = job.before;
    Plain plain;
    plain.raw(is_answer ? old.source_mac : old.dest_mac, 6);
    plain.raw(is_answer ? old.dest_mac : old.source_mac, 6);
    plain.u32(0x08004500);
    plain.u16(40U + (is_answer ? 0U : old.data_len));
    plain.u16(old.ipv4.id + 300U);
    plain.u16(0x4000U | old.ipv4.frag_off);
    plain.u8(old.ipv4.ttl);
    plain.u8(6);
    plain.u16(0);
    plain.raw(is_answer ? &old.ipv4.daddr : &old.ipv4.saddr, 4);
    plain.raw(is_answer ? &old.ipv4.saddr : &old.ipv4.daddr, 4);
    plain.put16(24, checksum(plain.at(kIpv4At), 20));
    const tcp_view& tcp = old.tcp;
    plain.u16(is_answer ? tcp.dest : tcp.source);
    plain.u16(is_answer ? tcp.source : tcp.dest);
    plain.u32(is_answer ? tcp.ack_seq : tcp.seq);
    plain.u32(is_answer ? tcp.seq + old.data_len : tcp.ack_seq);
    plain.u8(0x50);
    const std::uint32_t bits[] = {tcp.fin, tcp.syn, tcp.rst, tcp.psh, tcp.ack, tcp.urg};
    std::uint32_t flags = std::uint32_t{tcp.reserved_flags} << 6U;
    for (unsigned i = 0; i < std::size(bits); ++i) {
        flags |= is_answer ? 16U : bits[i] << i;
    }
    plain.u8(flags);
    plain.u16(65535);
    plain.u32(0);
    plain.put16(kTcpAt + 16, tcp_sum(job.record, plain.at(kTcpAt)));
    plain.require_is(out, 54, "a segment");
    // The record has its addresses in host order now. Its texts are still those of the decoded
    // frame.
    const ipv4_view& ip = job.record.ipv4;
    require(ip.saddr == ntohl(is_answer ? old.ipv4.daddr : old.ipv4.saddr) &&
                ip.daddr == ntohl(is_answer ? old.ipv4.saddr : old.ipv4.daddr) &&
                job.record.data_len == (is_answer ? 0 : old.data_len) &&
                std::memcmp(job.record.str_source_mac, old.str_source_mac, ZXFRAME_MAC_TEXT_SIZE) ==
                    0 &&
                zx::fuzz::take_said().empty(),
            "the record of a segment");
}

void build_ack(Job& job) {
    std::uint8_t* const out = frames().fill(54, kUntouched);
    require(zxframe_api_buildTcpAck(&job.record, out) == 54, "an acknowledgment");
    require_segment(job, out, true);
    require_valid(out, 54);
    keep(out, 54);
}

void build_data(Job& job) {
    const std::size_t payload = job.record.data_len;
    std::uint8_t* const out = frames().fill(54, kUntouched);
    require(zxframe_api_buildTcpData(&job.record, out) == static_cast<std::int32_t>(54 + payload),
            "the length of a segment");
    require_segment(job, out, false);
    if (payload <= ZXFRAME_DATA_SIZE) {
        std::string frame(out, out + 54);
        frame.append(job.record.data, job.record.data + payload);
        require_valid(reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size());
        keep(out, 54, Bytes(job.record.data).first(payload));
    }
}

// The type of a message, and below the type of its group record, by version and action.
std::uint32_t igmp_type(const igmp_req& request) {
    constexpr std::uint32_t kTypes[][2] = {{0, 0}, {0x12, 0}, {0x16, 0x17}, {0x22, 0x22}, {0, 0}};
    return request.action == ZXFRAME_IGMP_QUERY ? 0x11
           : request.action == ZXFRAME_IGMP_JOIN || request.action == ZXFRAME_IGMP_LEAVE
               ? kTypes[request.version][request.action - ZXFRAME_IGMP_JOIN]
               : 0;
}
std::uint32_t igmp_record_type(const igmp_req& request) {
    return request.version != 3                   ? 0
           : request.action == ZXFRAME_IGMP_JOIN  ? (request.mode == 1 ? 5 : 4)
           : request.action == ZXFRAME_IGMP_LEAVE ? (request.mode == 1 ? 6 : 3)
                                                  : 0;
}

// Adds the message, and returns its log lines.
std::string add_igmp(Plain& plain, const Job& job, const igmp_req& request) {
    static ether_ctt unused;
    unused.print_flag = job.record.print_flag;
    zx::fuzz::FrameModel lines(unused, zxlog_api_getLoglevel());
    const std::uint32_t type = igmp_type(request);
    const std::uint32_t record_type = igmp_record_type(request);
    const std::size_t begin = plain.size();
    const bool is_report = record_type != 0;
    const bool is_query = request.action == ZXFRAME_IGMP_QUERY;
    const bool is_listed =
        request.action == ZXFRAME_IGMP_JOIN || request.action == ZXFRAME_IGMP_LEAVE;
    if (!is_report && !is_query && !(is_listed && request.version >= 1 && request.version <= 2)) {
        return "";
    }
    plain.u8(type);
    plain.u8(0);
    plain.u16(0);
    if (is_report) {
        plain.u32(1);
        plain.u8(record_type);
        plain.u8(0);
        plain.u16(request.source_count);
    }
    plain.ip(request.group);
    for (std::size_t i = 0; is_report && i < request.source_count; ++i) {
        plain.ip(request.sources[i]);
    }
    const std::size_t size = plain.size() - begin;
    const std::uint32_t sum = checksum(plain.at(begin), size);
    plain.put16(begin + 2, sum);
    lines.dump("=============== IGMP data info(datalen:%zu)===============", size);
    lines.dump("type :0x%02x", type);
    if (is_report) {
        lines.dump("Reserved :00000");
        lines.dump("Checksum:0x%04x", sum);
        lines.dump("Reserved :0000");
        lines.dump("Num Group Records :1");
        lines.dump("Record Type:%u sec", record_type);
        lines.dump("Rux Data:0 sec");
        lines.dump("Num Src:%d sec", request.source_count);
    } else {
        lines.dump("Max Resp Time:0 sec");
        lines.dump("Checksum:0x%04x", sum);
    }
    lines.dump("Multicast Addr:%s", zx::fuzz::ip_text(inet_addr(request.group)).c_str());
    return lines.said();
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
        (i % 2 == 0 ? job.source_ip : job.dest_ip).put(request.sources[i]);
    }
    const bool is_endless = job.variant % 8 == 6 && request.source_count > 0;
    if (is_endless) {
        char* const last = request.sources[request.source_count - 1];
        std::fill_n(last, sizeof request.sources[0], '1');
    }
    const std::size_t size = 54 + 4 * std::size_t{has_too_many ? 0U : request.source_count};
    std::uint8_t* const out = frames().fill(size, kUntouched);
    const std::int32_t length = zxframe_api_buildIgmp(&job.record, &request, out);
    if (job.missing() != nullptr || has_too_many || is_endless) {
        require(length == -1, "what is needed for IGMP");
        const std::string said = zx::fuzz::g_said;
        require(!(has_too_many || is_endless) ||
                    zxframe_innerapi_buildIgmp(&job.record, &request, out) == 0,
                "what is needed for its message");
        zx::fuzz::g_said = said;
        return job.missing() != nullptr
                   ? require_refused(out, size, "Param error####%s", job.missing("group"))
               : has_too_many ? require_refused(out, size, "There are %u IGMP sources,more than %d",
                                                request.source_count, ZXFRAME_IGMP_SOURCES)
                              : require_refused(out, size, "Param error####sources");
    }
    Plain plain = ethernet(job, 0x0800);
    // The announced length depends on the version alone. Sources do not count, nor does it matter
    // that a query is short.
    add_ipv4(plain, job, 2, request.version == 3 ? 16 : 8);
    const std::string lines = add_igmp(plain, job, request);
    plain.require_is(out, size, "an IGMP message");
    keep(out, plain.size());
    require(length == static_cast<std::int32_t>(plain.size()), "the length of an IGMP message");
    require(zxframe_innerapi_getIgmpType(&request) == igmp_type(request) &&
                zxframe_innerapi_getIgmpRecordType(&request) == igmp_record_type(request),
            "the types of an IGMP message");
    const auto headers = [](zx::fuzz::FrameModel& model, const std::uint8_t* wire) {
        model.ethernet(wire);
        model.ipv4(wire + kIpv4At);
        model.dump("router_alert_type: 148");
        model.dump("router_alert_len: 4");
        model.dump("router_alert: 0");
    };
    require(
        zx::fuzz::take_said() == require_decoded(job.record, out, plain.size(), headers) + lines,
        "the lines of an IGMP message");
}

// Calls the parts of the builders, each with the room that it asks for.
void build_parts(Job& job) {
    ether_ctt& record = job.record;
    const auto put = [](std::size_t size) { return frames().fill(size, kUntouched); };
    zxframe_innerapi_buildEthrt(&record, job.dest_mac.get(), job.source_mac.get(),
                                job.control.take<std::uint16_t>(), put(14));
    const auto counted = job.control.take<std::uint32_t>();
    std::uint8_t* const ip = put(job.variant == 2 ? 24 : 20);
    zxframe_innerapi_buildIpv4(&record, job.variant, job.source_ip.get(), job.dest_ip.get(),
                               counted, ip);
    if (job.source_ip.get() != nullptr && job.dest_ip.get() != nullptr) {
        Plain plain;
        add_ipv4(plain, job, job.variant, counted);
        plain.require_is(ip, plain.size(), "an IPv4 header");
    }
    igmp_view view = record.igmp;
    zxframe_innerapi_getIgmpData1(&record, &view, put(8));
    const std::size_t sources = std::min<std::size_t>(view.source_count, ZXFRAME_IGMP_SOURCES);
    require(
        zxframe_innerapi_getIgmpData2(&record, &view, put(16 + 4 * sources)) == 16 + 4 * sources,
        "a report");

    zxbuildtcp_ctt& request = tcp_request(job);
    const Options options = set_options(job, request);
    std::uint8_t* const written = put(options.bytes.size());
    require(zxframe_innerapi_buildTcpOpt(&request, written) == options.bytes.size() &&
                std::memcmp(written, options.bytes.data(), options.bytes.size()) == 0,
            "the options");
    zxframe_innerapi_buildTcpPayload(&record, &request, put(20 + options.room()));
    require_checksums(record, put(4 * record.tcp.doff));
    ether_pkt ports{};
    ports.source = request.source;
    zxframe_innerapi_buildUdpPayload(&record, &ports, put(8));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Runs requests that no seed has: thousands for each builder, after a segment or after noise.
void zx_fuzz_sweep() {
    if (std::FILE* const file = std::exchange(g_frames, nullptr); file != nullptr) {
        std::fclose(file);
    }
    std::minstd_rand engine;
    std::vector<std::uint8_t> input(zx::fuzz::kControlSize + 200);
    for (unsigned turn = 0; turn < 16000; ++turn) {
        for (std::uint8_t& byte : input) {
            byte = static_cast<std::uint8_t>(engine() >> 8U);
        }
        input[0] = 5;  // the level that logs everything
        input[1] = static_cast<std::uint8_t>(turn % 8);
        if (turn / 8 % 4 != 0) {
            std::uint8_t* const frame = &input[zx::fuzz::kControlSize];
            frame[12] = 8;
            frame[13] = 0;
            frame[kIpv4At] = 0x45;
            frame[kIpv4At + 9] = 6;
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
}

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

    static ether_ctt before;
    before = record;
    Job job(record, before, control, frame);
    zx::fuzz::take_said();
    constexpr void (*kBuilders[])(Job&) = {build_tcp,  build_udp,  build_arp,  build_ack,
                                           build_data, build_igmp, finish_any, build_parts};
    kBuilders[builder % std::size(kBuilders)](job);
    return 0;
}
