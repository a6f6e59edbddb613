// Decoding compared with libtins, building with libtins and libnet, filtering with libpcap.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <libnet.h>
#include <pcap/pcap.h>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#include <tins/ethernetII.h>
#include <tins/ip.h>
#include <tins/rawpdu.h>
#include <tins/tcp.h>
#include <tins/udp.h>
#pragma GCC diagnostic pop

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "zxframe.h"
#include "zxlog.h"

namespace {

constexpr char kSourceMac[] = "52:54:00:12:34:56";
constexpr char kDestMac[] = "00:1a:2b:0c:0d:0e";
constexpr char kSourceIp[] = "192.168.10.21";
constexpr char kDestIp[] = "203.0.113.99";
constexpr std::uint16_t kSource = 49152;
constexpr std::uint16_t kDest = 8080;

// Switches the log off. At every other level, decoding a UDP frame writes a dump.
void log_nothing() {
    zxlog_api_setLoglevel(0);
}

template <typename Transport>
Tins::EthernetII packet(const Transport& transport, std::size_t payload) {
    Tins::IP ip(kDestIp, kSourceIp);
    ip.ttl(64);
    return Tins::EthernetII(kDestMac, kSourceMac) / ip / transport /
           Tins::RawPDU(std::vector<std::uint8_t>(payload, 0x47));
}

Tins::TCP segment() {
    Tins::TCP tcp(kDest, kSource);
    tcp.flags(Tins::TCP::ACK | Tins::TCP::PSH);
    tcp.seq(1);
    tcp.ack_seq(2);
    return tcp;
}

Tins::TCP segment_with_times() {
    Tins::TCP tcp = segment();
    tcp.add_option({Tins::TCP::NOP});
    tcp.add_option({Tins::TCP::NOP});
    tcp.timestamp(1000, 2000);
    return tcp;
}

// A frame as it comes from the network. The buffer is large enough for the decoder.
struct Frame {
    template <typename Transport>
    Frame(const Transport& transport, std::size_t payload)
        : bytes(packet(transport, payload).serialize()), size(bytes.size()) {
        bytes.resize(std::max<std::size_t>(size, ZXFRAME_READABLE));
    }
    std::vector<std::uint8_t> bytes;
    std::size_t size;
};

constexpr std::size_t kPayload = 100;

void decode_zxframe(benchmark::State& state) {
    const Frame frame(segment_with_times(), kPayload);
    const auto record = std::make_unique<ether_ctt>();
    for ([[maybe_unused]] auto _ : state) {
        record->tcp.option_count = 0;
        zxframe_api_doFrame(record.get(), frame.bytes.data());
        benchmark::ClobberMemory();
    }
    if (record->tcp.option_count != 3 || record->tcp.dest != kDest ||
        record->data_len != kPayload) {
        state.SkipWithError("not the frame");
    }
}

void decode_libtins(benchmark::State& state) {
    const Frame frame(segment_with_times(), kPayload);
    std::size_t options = 0;
    for ([[maybe_unused]] auto _ : state) {
        const Tins::EthernetII parsed(frame.bytes.data(), static_cast<std::uint32_t>(frame.size));
        options = parsed.rfind_pdu<Tins::TCP>().options().size();
        benchmark::DoNotOptimize(options);
    }
    if (options != 3) {
        state.SkipWithError("not the frame");
    }
}

BENCHMARK(decode_libtins)->Name("doFrame/libtins");
BENCHMARK(decode_zxframe)->Name("doFrame/library");

// What a filter looks for, and in which frame.
struct FilterCase {
    const char* ip;
    std::uint16_t port;
    bool udp, passes;
};
constexpr FilterCase kHit{kDestIp, kDest, false, true};
constexpr FilterCase kMissAddress{"198.51.100.7", kDest, false, false};
constexpr FilterCase kMissPort{kDestIp, 443, false, false};
constexpr FilterCase kMissProtocol{kDestIp, kDest, true, false};

Frame frame_of(const FilterCase& c) {
    return c.udp ? Frame(Tins::UDP(kDest, kSource), kPayload)
                 : Frame(segment_with_times(), kPayload);
}

void filter_zxframe(benchmark::State& state, const FilterCase& c) {
    log_nothing();
    const Frame frame = frame_of(c);
    const auto filter = std::make_unique<frame_filter_ctt>();
    filter->protocol = "tcp";
    filter->ip = c.ip;
    filter->port = c.port;
    std::int32_t passes = 0;
    for ([[maybe_unused]] auto _ : state) {
        filter->frame.tcp.option_count = 0;
        passes = zxframe_api_filterFrame(nullptr, frame.bytes.data(), filter.get());
        benchmark::DoNotOptimize(passes);
        benchmark::ClobberMemory();
    }
    if ((passes != 0) != c.passes) {
        state.SkipWithError("not the decision");
    }
}

void filter_libpcap(benchmark::State& state, const FilterCase& c) {
    const Frame frame = frame_of(c);
    const std::string text =
        "tcp and host " + std::string(c.ip) + " and port " + std::to_string(c.port);
    bpf_program program{};
    pcap_t* const dead = pcap_open_dead(DLT_EN10MB, 65535);
    if (pcap_compile(dead, &program, text.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
        state.SkipWithError(pcap_geterr(dead));
    }
    pcap_pkthdr header{};
    header.caplen = header.len = static_cast<bpf_u_int32>(frame.size);
    int passes = 0;
    for ([[maybe_unused]] auto _ : state) {
        passes = pcap_offline_filter(&program, &header, frame.bytes.data());
        benchmark::DoNotOptimize(passes);
        benchmark::ClobberMemory();
    }
    if ((passes != 0) != c.passes) {
        state.SkipWithError("not the decision");
    }
    pcap_freecode(&program);
    pcap_close(dead);
}

BENCHMARK_CAPTURE(filter_libpcap, hit, kHit)->Name("filterFrame_hit/libpcap");
BENCHMARK_CAPTURE(filter_zxframe, hit, kHit)->Name("filterFrame_hit/library");
BENCHMARK_CAPTURE(filter_libpcap, miss_address, kMissAddress)
    ->Name("filterFrame_miss_address/libpcap");
BENCHMARK_CAPTURE(filter_zxframe, miss_address, kMissAddress)
    ->Name("filterFrame_miss_address/library");
BENCHMARK_CAPTURE(filter_libpcap, miss_port, kMissPort)->Name("filterFrame_miss_port/libpcap");
BENCHMARK_CAPTURE(filter_zxframe, miss_port, kMissPort)->Name("filterFrame_miss_port/library");
BENCHMARK_CAPTURE(filter_libpcap, miss_protocol, kMissProtocol)
    ->Name("filterFrame_miss_protocol/libpcap");
BENCHMARK_CAPTURE(filter_zxframe, miss_protocol, kMissProtocol)
    ->Name("filterFrame_miss_protocol/library");

// Payload sizes.
void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(0)->Arg(100)->Arg(1400);
}

// Times `build`, which turns the record into a frame.
template <typename Build>
void build_frames(benchmark::State& state, const Build& build) {
    log_nothing();
    const auto record = std::make_unique<ether_ctt>();
    std::memset(record->data, 0x47, sizeof record->data);
    std::uint8_t out[2048];
    std::int32_t length = 0;
    for ([[maybe_unused]] auto _ : state) {
        record->data_len = static_cast<std::uint16_t>(state.range(0));
        length = build(*record, out);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
    if (length < 42) {
        state.SkipWithError("no frame");
    }
}

void build_tcp(benchmark::State& state) {
    const auto request = std::make_unique<zxbuildtcp_ctt>();
    request->str_dest_mac = kDestMac;
    request->str_source_mac = kSourceMac;
    request->source_ip = kSourceIp;
    request->dest_ip = kDestIp;
    request->source = kSource;
    request->dest = kDest;
    request->flags = ZXFRAME_TCP_ACK | ZXFRAME_TCP_PSH;
    build_frames(state, [&](ether_ctt& record, std::uint8_t* out) {
        return zxframe_api_buildTcp(&record, request.get(), out);
    });
}

// With payload and checksums, so that the frame is as complete as that of the peer.
void build_and_finish_tcp(benchmark::State& state) {
    const auto request = std::make_unique<zxbuildtcp_ctt>();
    request->str_dest_mac = kDestMac;
    request->str_source_mac = kSourceMac;
    request->source_ip = kSourceIp;
    request->dest_ip = kDestIp;
    build_frames(state, [&](ether_ctt& record, std::uint8_t* out) {
        zxframe_api_buildTcp(&record, request.get(), out);
        return zxframe_api_finishTcp(out, record.data, static_cast<std::uint32_t>(state.range(0)));
    });
}

void build_udp(benchmark::State& state) {
    const auto request = std::make_unique<ether_pkt>();
    std::strcpy(request->str_dest_mac, kDestMac);
    std::strcpy(request->str_source_mac, kSourceMac);
    std::strcpy(request->source_ip, kSourceIp);
    std::strcpy(request->dest_ip, kDestIp);
    request->source = kSource;
    request->dest = kDest;
    build_frames(state, [&](ether_ctt& record, std::uint8_t* out) {
        return zxframe_api_buildUdp(&record, request.get(), out);
    });
}

void build_ack(benchmark::State& state) {
    build_frames(state, [](ether_ctt& record, std::uint8_t* out) {
        return zxframe_api_buildTcpAck(&record, out);
    });
}

template <typename Transport>
void serialize(benchmark::State& state, const Transport& transport) {
    Tins::EthernetII built = packet(transport, static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(built.serialize());
    }
}

// libnet needs a device, although nothing is written to it here. Only a privileged user can open
// one.
class LibnetFrame {
public:
    explicit LibnetFrame(const std::vector<std::uint8_t>& payload)
        : payload_(payload.data()), size_(static_cast<std::uint32_t>(payload.size())) {
        inet_pton(AF_INET, kSourceIp, &source_);
        inet_pton(AF_INET, kDestIp, &dest_);
    }
    ~LibnetFrame() {
        if (net_ != nullptr) {
            libnet_destroy(net_);
        }
    }
    LibnetFrame(const LibnetFrame&) = delete;
    LibnetFrame& operator=(const LibnetFrame&) = delete;

    [[nodiscard]] bool is_open() const { return net_ != nullptr; }

    // The next segment of a stream.
    std::uint32_t build_tcp() {
        transport_ = libnet_build_tcp(kSource, kDest, ++sequence_, 2, TH_ACK | TH_PUSH, 32767, 0, 0,
                                      static_cast<std::uint16_t>(LIBNET_TCP_H + size_), payload_,
                                      size_, net_, transport_);
        return finish(IPPROTO_TCP, LIBNET_TCP_H + size_);
    }
    std::uint32_t build_udp() {
        const auto length = static_cast<std::uint16_t>(LIBNET_UDP_H + size_);
        transport_ = libnet_build_udp(kSource, kDest, length, 0, payload_, size_, net_, transport_);
        return finish(IPPROTO_UDP, length);
    }

private:
    std::uint32_t finish(std::uint8_t protocol, std::uint32_t length) {
        ip_ = libnet_build_ipv4(static_cast<std::uint16_t>(LIBNET_IPV4_H + length), 0, 1, 0, 64,
                                protocol, 0, source_, dest_, nullptr, 0, net_, ip_);
        ethernet_ = libnet_build_ethernet(kTo, kFrom, ETHERTYPE_IP, nullptr, 0, net_, ethernet_);
        std::uint8_t* frame = nullptr;
        std::uint32_t size = 0;
        libnet_adv_cull_packet(net_, &frame, &size);
        libnet_adv_free_packet(net_, frame);
        return size;
    }

    static constexpr std::uint8_t kTo[] = {0x00, 0x1a, 0x2b, 0x0c, 0x0d, 0x0e};
    static constexpr std::uint8_t kFrom[] = {0x52, 0x54, 0x00, 0x12, 0x34, 0x56};
    const std::uint8_t* payload_;
    std::uint32_t size_;
    char error_[LIBNET_ERRBUF_SIZE]{};
    libnet_t* net_ = libnet_init(LIBNET_LINK_ADV, "lo", error_);
    libnet_ptag_t transport_ = 0, ip_ = 0, ethernet_ = 0;
    std::uint32_t sequence_ = 0;
    std::uint32_t source_ = 0, dest_ = 0;
};

template <auto kBuild>
void build_libnet(benchmark::State& state) {
    const std::vector<std::uint8_t> payload(static_cast<std::size_t>(state.range(0)), 0x47);
    LibnetFrame frame(payload);
    if (!frame.is_open()) {
        state.SkipWithError("libnet gets no socket");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        if ((frame.*kBuild)() < 42 + payload.size()) {
            state.SkipWithError("no frame");
            break;
        }
    }
}

#define ZX_BENCH_PEERS(work, transport, build)                                          \
    BENCHMARK_CAPTURE(serialize, work, transport)->Name(work "/libtins")->Apply(sizes); \
    BENCHMARK(build_libnet<&LibnetFrame::build>)->Name(work "/libnet")->Apply(sizes)

BENCHMARK(build_tcp)->Name("buildTcp/library")->Apply(sizes);
ZX_BENCH_PEERS("buildTcp", segment(), build_tcp);
BENCHMARK(build_and_finish_tcp)->Name("buildTcp_finishTcp/library")->Apply(sizes);
ZX_BENCH_PEERS("buildTcp_finishTcp", segment(), build_tcp);
BENCHMARK(build_udp)->Name("buildUdp/library")->Apply(sizes);
ZX_BENCH_PEERS("buildUdp", Tins::UDP(kDest, kSource), build_udp);
BENCHMARK(build_ack)->Name("buildTcpAck/library")->Arg(0);
BENCHMARK_CAPTURE(serialize, ack, segment())->Name("buildTcpAck/libtins")->Arg(0);

}  // namespace
