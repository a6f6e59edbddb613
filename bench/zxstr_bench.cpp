// Texts compared with libbsd, libavformat (URLs), GLib and the C library.
#include "zxstr.h"

#include <bsd/string.h>
#include <glib.h>

#include <cstring>
#include <string>

#include "support.hpp"

// libavformat exports this function, but none of its public headers declares it.
extern "C" void av_url_split(char* proto, int proto_size, char* authorization,
                             int authorization_size, char* hostname, int hostname_size,
                             int* port_ptr, char* path, int path_size, const char* url);

namespace {

using zx::bench::opaque;

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
BENCHMARK(copies<zxstr_api_lcpy>)->Name("lcpy/library")->Apply(fill_lengths);
BENCHMARK(copies<strlcpy>)->Name("lcpy/libbsd")->Apply(fill_lengths);

// Appends to a short text, as when a path is built.
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
BENCHMARK(appends<zxstr_api_lcat>)->Name("lcat/library")->Apply(fill_lengths);
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
BENCHMARK(url_splits<zxstr_split>)->Name("urlSplit/library")->DenseRange(0, 3);
BENCHMARK(url_splits<libavformat_split>)->Name("urlSplit/libavformat")->DenseRange(0, 3);

constexpr char kQuery[] = "token=0123456789abcdef&user=somebody&start=100&format=m3u8&bitrate=2500";
constexpr const char* kHeader =
    "GET /vod/film.m3u8 HTTP/1.1\nHost: media.example.net:8080\nUser-Agent: player/3.0\n"
    "Accept: */*\nRange: bytes=0-\nConnection: keep-alive\n";
char g_text[512];
char g_out[1024];
char* g_fields[64];

void split_library() {
    std::memcpy(g_text, kQuery, sizeof kQuery);
    zxstr_api_split(g_text, "&=", g_fields);
}
void split_libc() {
    std::memcpy(g_text, kQuery, sizeof kQuery);
    char* rest = nullptr;
    char** field = g_fields;
    for (*field = strtok_r(g_text, "&=", &rest); *field != nullptr;) {
        *++field = strtok_r(nullptr, "&=", &rest);
    }
}
void split_glib() {
    g_strfreev(g_strsplit_set(kQuery, "&=", 0));
}

void tag_library() {
    zxstr_api_findTag(g_out, sizeof g_out, "format", kQuery);
}
void tag_glib() {
    GUriParamsIter next;
    g_uri_params_iter_init(&next, kQuery, -1, "&", G_URI_PARAMS_WWW_FORM);
    gchar* name = nullptr;
    gchar* value = nullptr;
    for (bool is_found = false;
         !is_found && g_uri_params_iter_next(&next, &name, &value, nullptr);) {
        is_found = std::strcmp(name, "format") == 0;
        g_free(name);
        g_free(value);
    }
}

void lines_library() {
    std::memcpy(g_text, kHeader, std::strlen(kHeader) + 1);
    for (char* rest = g_text; *rest != '\0';) {
        zxstr_api_getLine(g_out, sizeof g_out, &rest);
    }
}
void lines_libc() {
    std::memcpy(g_text, kHeader, std::strlen(kHeader) + 1);
    for (char* rest = g_text; const char* const line = strsep(&rest, "\n");) {
        zxstr_api_lcpy(g_out, line, sizeof g_out);
    }
}

void search_library() {
    benchmark::DoNotOptimize(zxstr_api_isCasestr(kHeader, "Connection"));
}
void search_libc() {
    benchmark::DoNotOptimize(std::strstr(opaque(kHeader), "Connection"));
}
void search_any_case_library() {
    benchmark::DoNotOptimize(zxstr_api_isCasestr_IgnoreLetterCase(kHeader, "connection"));
}
void search_any_case_libc() {
    benchmark::DoNotOptimize(strcasestr(opaque(kHeader), "connection"));
}

void replace_library() {
    zxstr_api_replace(kHeader, "media", "edge-12.media", g_out);
}
void replace_glib() {
    GString* const text = g_string_new(kHeader);
    g_string_replace(text, "media", "edge-12.media", 0);
    g_string_free(text, TRUE);
}

void capitals_library() {
    zxstr_api_outULetters(kHeader, g_out);
}
void capitals_glib() {
    g_free(g_ascii_strup(kHeader, -1));
}

void append_library() {
    g_out[0] = '\0';
    zxstr_api_lcatf(g_out, sizeof g_out, "%s:%d", "media.example.net", 8080);
}
void append_libc() {
    std::snprintf(g_out, sizeof g_out, "%s:%d", "media.example.net", 8080);
}

void calls(benchmark::State& state, void (*call)()) {
    for ([[maybe_unused]] auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
}
#define ZX_BENCH(work, who, call) BENCHMARK_CAPTURE(calls, call, call)->Name(work "/" who)
ZX_BENCH("split", "library", split_library);
ZX_BENCH("split", "strtok_r", split_libc);
ZX_BENCH("split", "glib", split_glib);
ZX_BENCH("findTag", "library", tag_library);
ZX_BENCH("findTag", "glib", tag_glib);
ZX_BENCH("getLine", "library", lines_library);
ZX_BENCH("getLine", "strsep+lcpy", lines_libc);
ZX_BENCH("isCasestr", "library", search_library);
ZX_BENCH("isCasestr", "strstr", search_libc);
ZX_BENCH("isCasestr_IgnoreLetterCase", "library", search_any_case_library);
ZX_BENCH("isCasestr_IgnoreLetterCase", "strcasestr", search_any_case_libc);
ZX_BENCH("replace", "library", replace_library);
ZX_BENCH("replace", "glib", replace_glib);
ZX_BENCH("outULetters", "library", capitals_library);
ZX_BENCH("outULetters", "glib", capitals_glib);
ZX_BENCH("lcatf", "library", append_library);
ZX_BENCH("lcatf", "snprintf", append_libc);

}  // namespace
