// Base64 in both directions, random numbers and files, compared with other libraries. The peers
// have the standard alphabet built in.
#include "zxmd.h"

#include <bsd/stdlib.h>
#include <glib.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "support.hpp"

extern "C" {
#include <libavutil/base64.h>
}

namespace {

constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kReversed[] = "/+9876543210zyxwvutsrqponmlkjihgfedcbaZYXWVUTSRQPONMLKJIHGFEDCBA";

using Encode = void (*)(char* out, std::size_t out_size, const std::uint8_t* in, std::size_t size);
using Decode = void (*)(std::uint8_t* out, std::size_t out_size, const char* in, std::size_t size);

template <const char* Alphabet>
void encode_ours(char* out, std::size_t, const std::uint8_t* in, std::size_t size) {
    zxmd_api_ascii2Base64(Alphabet, in, static_cast<std::uint32_t>(size), out);
}
void encode_libavutil(char* out, std::size_t out_size, const std::uint8_t* in, std::size_t size) {
    av_base64_encode(out, static_cast<int>(out_size), in, static_cast<int>(size));
}
void encode_openssl(char* out, std::size_t, const std::uint8_t* in, std::size_t size) {
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out), in, static_cast<int>(size));
}

void encode_glib(char* out, std::size_t, const std::uint8_t* in, std::size_t size) {
    int state = 0;
    int save = 0;
    out += g_base64_encode_step(in, size, FALSE, out, &state, &save);
    out[g_base64_encode_close(FALSE, out, &state, &save)] = '\0';
}

template <const char* Alphabet>
void decode_ours(std::uint8_t* out, std::size_t, const char* in, std::size_t) {
    zxmd_api_base642Ascii(Alphabet, in, out);
}
void decode_libavutil(std::uint8_t* out, std::size_t out_size, const char* in, std::size_t) {
    av_base64_decode(out, in, static_cast<int>(out_size));
}
void decode_openssl(std::uint8_t* out, std::size_t, const char* in, std::size_t size) {
    EVP_DecodeBlock(out, reinterpret_cast<const unsigned char*>(in), static_cast<int>(size));
}
void decode_glib(std::uint8_t* out, std::size_t, const char* in, std::size_t size) {
    int state = 0;
    guint save = 0;
    g_base64_decode_step(in, size, out, &state, &save);
}

// Bytes, and room for their Base64 text.
struct Data {
    explicit Data(std::size_t size)
        : plain(zx::bench::some_bytes(size)), text(ZXMD_BASE64_SIZE(size)) {}
    std::vector<std::uint8_t> plain;
    std::vector<char> text;
};

void encode(benchmark::State& state, Encode call) {
    Data data(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        call(data.text.data(), data.text.size(), data.plain.data(), data.plain.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void decode(benchmark::State& state, Decode call, const char* alphabet) {
    Data data(static_cast<std::size_t>(state.range(0)));
    const std::size_t size =
        zxmd_api_ascii2Base64(alphabet, data.plain.data(),
                              static_cast<std::uint32_t>(data.plain.size()), data.text.data());
    data.plain.resize(data.text.size());  // more than enough
    for (auto _ : state) {
        call(data.plain.data(), data.plain.size(), data.text.data(), size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(48)->Arg(1 << 10)->Arg(1 << 20);
}

BENCHMARK_CAPTURE(encode, a, encode_ours<kStandard>)->Name("ascii2Base64/library")->Apply(sizes);
BENCHMARK_CAPTURE(encode, b, encode_libavutil)->Name("ascii2Base64/libavutil")->Apply(sizes);
BENCHMARK_CAPTURE(encode, c, encode_openssl)->Name("ascii2Base64/openssl")->Apply(sizes);
BENCHMARK_CAPTURE(encode, d, encode_glib)->Name("ascii2Base64/glib")->Apply(sizes);
BENCHMARK_CAPTURE(encode, e, encode_ours<kReversed>)
    ->Name("ascii2Base64_own_alphabet/library")
    ->Apply(sizes);

BENCHMARK_CAPTURE(decode, a, decode_ours<kStandard>, kStandard)
    ->Name("base642Ascii/library")
    ->Apply(sizes);
BENCHMARK_CAPTURE(decode, b, decode_libavutil, kStandard)
    ->Name("base642Ascii/libavutil")
    ->Apply(sizes);
BENCHMARK_CAPTURE(decode, c, decode_openssl, kStandard)->Name("base642Ascii/openssl")->Apply(sizes);
BENCHMARK_CAPTURE(decode, d, decode_glib, kStandard)->Name("base642Ascii/glib")->Apply(sizes);
BENCHMARK_CAPTURE(decode, e, decode_ours<kReversed>, kReversed)
    ->Name("base642Ascii_own_alphabet/library")
    ->Apply(sizes);

// A number below a bound.
void random_ours() {
    benchmark::DoNotOptimize(zxmd_api_randomU32(0, 1000000));
}
void random_libbsd() {
    benchmark::DoNotOptimize(arc4random_uniform(1000000));
}
void random_glib() {
    benchmark::DoNotOptimize(g_random_int_range(0, 1000000));
}

// Opens a file of one page, reads and closes it.
constexpr std::size_t kFileSize = 4096;
constexpr char kPath[] = "/tmp/zxmd_bench.data";
char g_buffer[kFileSize];

void read_ours() {
    zxmd_api_read(kPath, g_buffer, kFileSize);
}
void read_libc() {
    std::FILE* const file = std::fopen(kPath, "re");
    benchmark::DoNotOptimize(std::fread(g_buffer, 1, kFileSize, file));
    std::fclose(file);
}
void read_glib() {
    gchar* text = nullptr;
    g_file_get_contents(kPath, &text, nullptr, nullptr);
    g_free(text);
}

void calls(benchmark::State& state, void (*call)()) {
    zxmd_api_write(kPath, g_buffer, kFileSize, "w");
    for (auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
    unlink(kPath);
}
BENCHMARK_CAPTURE(calls, a, random_ours)->Name("randomU32/library");
BENCHMARK_CAPTURE(calls, b, random_libbsd)->Name("randomU32/libbsd");
BENCHMARK_CAPTURE(calls, c, random_glib)->Name("randomU32/glib");
BENCHMARK_CAPTURE(calls, d, read_ours)->Name("read/library");
BENCHMARK_CAPTURE(calls, e, read_libc)->Name("read/stdio");
BENCHMARK_CAPTURE(calls, f, read_glib)->Name("read/glib");

}  // namespace
