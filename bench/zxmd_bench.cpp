// Base64 both ways beside libavutil's and OpenSSL's, which have the standard alphabet built in.
#include "zxmd.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <string>
#include <vector>

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

// Bytes that look like a media stream's, and room for their text.
struct Data {
    explicit Data(std::size_t size) : plain(size), text(ZXMD_BASE64_SIZE(size)) {
        std::uint32_t state = 1;
        std::generate(plain.begin(), plain.end(), [&state] {
            state = state * 1664525 + 1013904223;
            return static_cast<std::uint8_t>(state >> 24U);
        });
    }
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

void fill_sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(48)->Arg(1 << 10)->Arg(1 << 20);
}

BENCHMARK_CAPTURE(encode, zxmd, encode_ours<kStandard>)->Apply(fill_sizes);
BENCHMARK_CAPTURE(encode, zxmd_reversed, encode_ours<kReversed>)->Apply(fill_sizes);
BENCHMARK_CAPTURE(encode, libavutil, encode_libavutil)->Apply(fill_sizes);
BENCHMARK_CAPTURE(encode, openssl, encode_openssl)->Apply(fill_sizes);

BENCHMARK_CAPTURE(decode, zxmd, decode_ours<kStandard>, kStandard)->Apply(fill_sizes);
BENCHMARK_CAPTURE(decode, zxmd_reversed, decode_ours<kReversed>, kReversed)->Apply(fill_sizes);
BENCHMARK_CAPTURE(decode, libavutil, decode_libavutil, kStandard)->Apply(fill_sizes);
BENCHMARK_CAPTURE(decode, openssl, decode_openssl, kStandard)->Apply(fill_sizes);

}  // namespace
