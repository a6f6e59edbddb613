// Bounded copies beside libbsd's, URL splitting beside libavformat's.
#include "zxstr.h"

#include <benchmark/benchmark.h>
#include <bsd/string.h>

#include <cstring>
#include <string>

// Exported by libavformat's shared library, but in none of its public headers.
extern "C" void av_url_split(char* proto, int proto_size, char* authorization,
                             int authorization_size, char* hostname, int hostname_size,
                             int* port_ptr, char* path, int path_size, const char* url);

namespace {

constexpr std::size_t kBufferSize = 8192;

void fill_lengths(benchmark::internal::Benchmark* bench) {
    bench->Arg(16)->Arg(64)->Arg(1000)->Arg(4096);
}

template <auto Copy>
void copies(benchmark::State& state) {
    const std::string text(static_cast<std::size_t>(state.range(0)), 't');
    char buffer[kBufferSize];
    for (auto _ : state) {
        const char* src = text.c_str();
        benchmark::DoNotOptimize(src);
        benchmark::DoNotOptimize(Copy(buffer, src, sizeof buffer));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(copies<zxstr_api_lcpy>)->Name("lcpy/zxstr")->Apply(fill_lengths);
BENCHMARK(copies<strlcpy>)->Name("lcpy/libbsd")->Apply(fill_lengths);

// To a short text, as a path grows.
template <auto Append>
void appends(benchmark::State& state) {
    constexpr char kBefore[] = "/var/lib/media/";
    const std::string text(static_cast<std::size_t>(state.range(0)), 't');
    char buffer[kBufferSize] = {};
    std::strcpy(buffer, kBefore);
    for (auto _ : state) {
        const char* src = text.c_str();
        buffer[sizeof kBefore - 1] = '\0';
        benchmark::DoNotOptimize(src);
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(Append(buffer, src, sizeof buffer));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(appends<zxstr_api_lcat>)->Name("lcat/zxstr")->Apply(fill_lengths);
BENCHMARK(appends<strlcat>)->Name("lcat/libbsd")->Apply(fill_lengths);

const char* const kUrls[] = {
    "rtmp://user:pw@[fe80::1]:1935/live/a?x=1",
    "http://media.example.net:8080/vod/2024/05/01/"
    "a-rather-long-name-of-a-film.m3u8?token=0123456789"
    "abcdef0123456789abcdef&user=somebody",
    "udp://239.1.2.3:5000",
    "/var/lib/media/film.ts",
};

struct Parts {
    char proto[32], auth[128], host[256], path[1024];
    int port;
    uint8_t bracketed;
};

void zxstr_split(Parts& p, const char* url) {
    zxstr_api_urlSplit(p.proto, sizeof p.proto, p.auth, sizeof p.auth, p.host, sizeof p.host,
                       &p.port, p.path, sizeof p.path, &p.bracketed, url);
}

void libavformat_split(Parts& p, const char* url) {
    av_url_split(p.proto, sizeof p.proto, p.auth, sizeof p.auth, p.host, sizeof p.host, &p.port,
                 p.path, sizeof p.path, url);
}

template <auto Split>
void url_splits(benchmark::State& state) {
    Parts parts{};
    for (auto _ : state) {
        const char* url = kUrls[state.range(0)];
        benchmark::DoNotOptimize(url);
        Split(parts, url);
        benchmark::ClobberMemory();
    }
    state.SetLabel(kUrls[state.range(0)]);
}
BENCHMARK(url_splits<zxstr_split>)->Name("urlSplit/zxstr")->DenseRange(0, 3);
BENCHMARK(url_splits<libavformat_split>)->Name("urlSplit/libavformat")->DenseRange(0, 3);

}  // namespace
