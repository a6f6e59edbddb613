// MD5 of a message beside OpenSSL's and libavutil's.
#include "zxmd5.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

extern "C" {
#include <libavutil/md5.h>
}

#include <vector>

namespace {

void openssl_md5(const std::uint8_t* data, std::size_t size, std::uint8_t* digest) {
    static EVP_MD* const kMd5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
    EVP_Digest(data, size, digest, nullptr, kMd5, nullptr);
}

void libavutil_md5(const std::uint8_t* data, std::size_t size, std::uint8_t* digest) {
    av_md5_sum(digest, data, size);
}

void zxmd5_num(const std::uint8_t* data, std::size_t size, std::uint8_t* digest) {
    zxmd5_api_outNum(data, size, reinterpret_cast<std::uint32_t*>(digest));
}

template <auto Digest>
void digests(benchmark::State& state) {
    const std::vector<std::uint8_t> message(static_cast<std::size_t>(state.range(0)), 'm');
    alignas(std::uint32_t) std::uint8_t digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        Digest(message.data(), message.size(), digest);
        benchmark::DoNotOptimize(digest);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(digests<zxmd5_num>)->Name("md5/zxmd5")->Arg(40)->Arg(1316)->Arg(65536)->Arg(1048576);
BENCHMARK(digests<openssl_md5>)->Name("md5/openssl")->Arg(40)->Arg(1316)->Arg(65536)->Arg(1048576);
BENCHMARK(digests<libavutil_md5>)
    ->Name("md5/libavutil")
    ->Arg(40)
    ->Arg(1316)
    ->Arg(65536)
    ->Arg(1048576);

}  // namespace
