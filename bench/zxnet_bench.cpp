// Receiving and sending with a wait, compared with the system calls that these need; checksums
// compared with DPDK and with a textbook loop; conversion of addresses compared with the C library.
#include <arpa/inet.h>
#include <netinet/ether.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "support.hpp"
#include "zxnet.h"

#ifdef ZX_HAS_DPDK
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#include <rte_ip.h>
#pragma GCC diagnostic pop
#endif

namespace {

constexpr std::uint32_t kSize = 1400;
constexpr int kBatch = 64;  // fits into a socket buffer
constexpr std::uint32_t kTimeoutMs = 1000;

char g_buf[kSize];

bool wait_bare(int fd, std::uint32_t mask) {
    const int epfd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{};
    event.events = mask;
    event.data.fd = fd;
    epoll_ctl(epfd, EPOLL_CTL_ADD, fd, &event);
    epoll_event events[2]{};
    const int ready = epoll_wait(epfd, events, 2, kTimeoutMs);
    epoll_ctl(epfd, EPOLL_CTL_DEL, fd, &event);
    close(epfd);
    return ready == 1;
}

ssize_t recv_bare(int fd) {
    return wait_bare(fd, EPOLLIN) ? recv(fd, g_buf, kSize, 0) : -1;
}
ssize_t recv_ours(int fd) {
    return zxnet_api_epollRecv(fd, g_buf, kSize, kTimeoutMs);
}
ssize_t send_bare(int fd) {
    return wait_bare(fd, EPOLLOUT) ? send(fd, g_buf, kSize, MSG_NOSIGNAL) : -1;
}
ssize_t send_ours(int fd) {
    return zxnet_api_epollSend(fd, g_buf, kSize, kTimeoutMs);
}

using Call = ssize_t (*)(int fd);

// Measures only the calls: between two batches, the other end fills or drains the socket.
void run(benchmark::State& state, Call call, bool receives) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) != 0) {
        state.SkipWithError("no socket pair");
        return;
    }
    const int size = 2 * kBatch * 4096;
    setsockopt(pair[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    setsockopt(pair[1], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    ssize_t moved = 0;
    for ([[maybe_unused]] auto _ : state) {
        for (int i = 0; receives && i < kBatch; ++i) {
            moved += send(pair[1], g_buf, kSize, MSG_NOSIGNAL);
        }
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < kBatch; ++i) {
            moved += call(pair[0]);
        }
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(spent.count());
        for (int i = 0; !receives && i < kBatch; ++i) {
            moved += recv(pair[1], g_buf, kSize, 0);
        }
    }
    if (moved != state.iterations() * 2 * kBatch * kSize) {
        state.SkipWithError("bytes were lost");
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    close(pair[0]);
    close(pair[1]);
}

BENCHMARK_CAPTURE(run, recv, recv_ours, true)->Name("epollRecv/library")->UseManualTime();
BENCHMARK_CAPTURE(run, recv, recv_bare, true)->Name("epollRecv/system-calls")->UseManualTime();
BENCHMARK_CAPTURE(run, send, send_ours, false)->Name("epollSend/library")->UseManualTime();
BENCHMARK_CAPTURE(run, send, send_bare, false)->Name("epollSend/system-calls")->UseManualTime();

#ifdef ZX_HAS_DPDK
[[gnu::noinline]] std::uint16_t checksum_dpdk(const std::uint8_t* at, std::uint32_t size) {
    return __builtin_bswap16(static_cast<std::uint16_t>(~rte_raw_cksum(at, size)));
}
#endif

// Sums one word at a time.
[[gnu::noinline]] std::uint16_t checksum_textbook(const std::uint8_t* at, std::uint32_t size) {
    std::uint32_t sum = 0;
    for (; size > 1; size -= 2, at += 2) {
        std::uint16_t word;
        __builtin_memcpy(&word, at, sizeof word);
        sum += word;
        asm("" : "+r"(sum));  // keeps compilers from adding several words at once
    }
    if (size != 0) {
        sum += *at;
    }
    sum = (sum >> 16U) + (sum & 0xFFFFU);
    sum += sum >> 16U;
    return __builtin_bswap16(static_cast<std::uint16_t>(~sum));
}

std::uint16_t checksum_udp(const std::uint8_t* at, std::uint32_t size) {
    const void* const words = at;
    return __builtin_bswap16(zxnet_api_checksumUdp(static_cast<const std::uint16_t*>(words), size));
}

template <auto Checksum>
void checksums(benchmark::State& state) {
    const auto size = static_cast<std::uint32_t>(state.range(0));
    const auto bytes = zx::bench::some_bytes(size);
    if (Checksum(bytes.data(), size) != checksum_textbook(bytes.data(), size)) {
        state.SkipWithError("not the checksum");
    }
    for ([[maybe_unused]] auto _ : state) {
        const std::uint8_t* at = bytes.data();
        benchmark::DoNotOptimize(at);
        benchmark::DoNotOptimize(Checksum(at, size));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// The IPv4 header, a short datagram, a full frame.
void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(20)->Arg(188)->Arg(1500);
}

BENCHMARK(checksums<zxnet_api_checksum>)->Name("checksum/library")->Apply(sizes);
BENCHMARK(checksums<checksum_udp>)->Name("checksumUdp/library")->Apply(sizes);
BENCHMARK(checksums<checksum_textbook>)->Name("checksum/textbook")->Apply(sizes);
BENCHMARK(checksums<checksum_textbook>)->Name("checksumUdp/textbook")->Apply(sizes);
#ifdef ZX_HAS_DPDK
BENCHMARK(checksums<checksum_dpdk>)->Name("checksum/dpdk")->Apply(sizes);
#endif

// Addresses: each call gets the next one of a few texts or numbers of different lengths.
constexpr std::size_t kAddresses = 8;
constexpr const char* kIpTexts[kAddresses] = {"192.168.1.1",  "10.0.0.1",        "8.8.8.8",
                                              "172.16.254.3", "255.255.255.255", "100.64.12.7",
                                              "203.0.113.99", "239.255.1.1"};
constexpr const char* kMacTexts[kAddresses] = {
    "00:1a:2b:0c:0d:0e", "01:00:5e:7f:01:01", "0:1a:2b:c:d:e",     "FF:FF:FF:FF:FF:FF",
    "52:54:00:12:34:56", "de:ad:be:ef:00:01", "00:00:00:00:00:00", "a:b:c:d:e:f"};

char g_text[ZXNET_IP_TEXT_SIZE];
std::uint32_t g_ip;
ether_addr g_mac;

void print_ours(std::uint32_t ip) {
    zxnet_api_ipByte2Str(ip, g_text);
}
void print_libc(std::uint32_t ip) {
    const in_addr address{htonl(ip)};
    inet_ntop(AF_INET, &address, g_text, sizeof g_text);
}
void parse_ours(const char* text) {
    g_ip = zxnet_api_ipStr2Byte(text);
}
void parse_libc(const char* text) {
    in_addr address{};
    inet_pton(AF_INET, text, &address);
    g_ip = ntohl(address.s_addr);
}
void mac_ours(const char* text) {
    zxnet_api_macStr2Byte(text, g_mac.ether_addr_octet);
}
void mac_libc(const char* text) {
    ether_aton_r(text, &g_mac);
}

void print(benchmark::State& state, void (*call)(std::uint32_t)) {
    std::uint32_t ips[kAddresses];
    std::transform(std::begin(kIpTexts), std::end(kIpTexts), ips, zxnet_api_ipStr2Byte);
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        call(ips[next++ % kAddresses]);
        benchmark::ClobberMemory();
    }
}

void parse(benchmark::State& state, void (*call)(const char*), const char* const* texts) {
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        call(texts[next++ % kAddresses]);
        benchmark::ClobberMemory();
    }
}

BENCHMARK_CAPTURE(print, ip, print_ours)->Name("ipByte2Str/library");
BENCHMARK_CAPTURE(print, ip, print_libc)->Name("ipByte2Str/inet_ntop");
BENCHMARK_CAPTURE(parse, ip, parse_ours, kIpTexts)->Name("ipStr2Byte/library");
BENCHMARK_CAPTURE(parse, ip, parse_libc, kIpTexts)->Name("ipStr2Byte/inet_pton");
BENCHMARK_CAPTURE(parse, mac, mac_ours, kMacTexts)->Name("macStr2Byte/library");
BENCHMARK_CAPTURE(parse, mac, mac_libc, kMacTexts)->Name("macStr2Byte/ether_aton_r");

}  // namespace
