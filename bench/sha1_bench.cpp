// SHA-1 of a message beside OpenSSL's and libavutil's. With ZX_CPU=portable the library goes
// without the processor's SHA instructions, which libavutil never has; OPENSSL_ia32cap=:~0x20000000
// takes them from OpenSSL, too.
#include "sha1.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/sha.h>
}

#include <vector>

namespace {

void openssl_sha1(const std::uint8_t* data, std::size_t size, std::uint8_t* digest) {
    static EVP_MD* const kSha1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);
    EVP_Digest(data, size, digest, nullptr, kSha1, nullptr);
}

void libavutil_sha1(const std::uint8_t* data, std::size_t size, std::uint8_t* digest) {
    static AVSHA* const kContext = av_sha_alloc();
    av_sha_init(kContext, 160);
    av_sha_update(kContext, data, size);
    av_sha_final(kContext, digest);
}

void zx_sha1(const std::uint8_t* data, std::size_t size, std::uint8_t* digest) {
    SHA1Context context;
    SHA1Reset(&context);
    SHA1Input(&context, data, static_cast<std::uint32_t>(size));
    SHA1Result(&context);
    benchmark::DoNotOptimize(digest);
    benchmark::DoNotOptimize(context);
}

template <auto Digest>
void digests(benchmark::State& state) {
    const std::vector<std::uint8_t> message(static_cast<std::size_t>(state.range(0)), 'm');
    std::uint8_t digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        Digest(message.data(), message.size(), digest);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(digests<zx_sha1>)->Name("sha1/sha1")->Arg(40)->Arg(1316)->Arg(65536)->Arg(1048576);
BENCHMARK(digests<openssl_sha1>)
    ->Name("sha1/openssl")
    ->Arg(40)
    ->Arg(1316)
    ->Arg(65536)
    ->Arg(1048576);
BENCHMARK(digests<libavutil_sha1>)
    ->Name("sha1/libavutil")
    ->Arg(40)
    ->Arg(1316)
    ->Arg(65536)
    ->Arg(1048576);

}  // namespace
