// MD5 and SHA-1 of a message, compared with OpenSSL, nettle and others. With ZX_CPU=avx2 the
// library does not use the SHA instructions of the processor; scripts/bench.sh then switches them
// off in OpenSSL and nettle, too.
#include <glib.h>
#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <openssl/evp.h>

#include "sha1.h"
#include "support.hpp"
#include "zxmd5.h"

extern "C" {
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <libavutil/sha.h>
}

namespace {

alignas(std::uint32_t) std::uint8_t g_digest[EVP_MAX_MD_SIZE];

void zx_md5(const std::uint8_t* data, std::size_t size) {
    zxmd5_api_outNum(data, size, reinterpret_cast<std::uint32_t*>(g_digest));
}

void zx_sha1(const std::uint8_t* data, std::size_t size) {
    SHA1Context context;
    SHA1Reset(&context);
    SHA1Input(&context, data, static_cast<std::uint32_t>(size));
    SHA1Result(&context);
    benchmark::DoNotOptimize(context);
}

constexpr char kMd5[] = "MD5";
constexpr char kSha1[] = "SHA1";

template <const char* kName>
void openssl(const std::uint8_t* data, std::size_t size) {
    static EVP_MD* const digest = EVP_MD_fetch(nullptr, kName, nullptr);
    EVP_Digest(data, size, g_digest, nullptr, digest, nullptr);
}

void libavutil_md5(const std::uint8_t* data, std::size_t size) {
    av_md5_sum(g_digest, data, size);
}

void libavutil_sha1(const std::uint8_t* data, std::size_t size) {
    static AVSHA* const context = av_sha_alloc();
    av_sha_init(context, 160);
    av_sha_update(context, data, size);
    av_sha_final(context, g_digest);
}

void nettle_md5(const std::uint8_t* data, std::size_t size) {
    md5_ctx context;
    md5_init(&context);
    md5_update(&context, size, data);
    md5_digest(&context, MD5_DIGEST_SIZE, g_digest);
}

void nettle_sha1(const std::uint8_t* data, std::size_t size) {
    sha1_ctx context;
    sha1_init(&context);
    sha1_update(&context, size, data);
    sha1_digest(&context, SHA1_DIGEST_SIZE, g_digest);
}

template <GChecksumType kType>
void glib(const std::uint8_t* data, std::size_t size) {
    static GChecksum* const checksum = g_checksum_new(kType);
    gsize digest_size = sizeof g_digest;
    g_checksum_reset(checksum);
    g_checksum_update(checksum, data, static_cast<gssize>(size));
    g_checksum_get_digest(checksum, g_digest, &digest_size);
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(40)->Arg(1316)->Arg(65536)->Arg(1 << 20);
}

using zx::bench::over_bytes;
BENCHMARK(over_bytes<zx_md5>)->Name("MD5/library")->Apply(sizes);
BENCHMARK(over_bytes<openssl<kMd5>>)->Name("MD5/openssl")->Apply(sizes);
BENCHMARK(over_bytes<libavutil_md5>)->Name("MD5/libavutil")->Apply(sizes);
BENCHMARK(over_bytes<nettle_md5>)->Name("MD5/nettle")->Apply(sizes);
BENCHMARK(over_bytes<glib<G_CHECKSUM_MD5>>)->Name("MD5/glib")->Apply(sizes);
BENCHMARK(over_bytes<zx_sha1>)->Name("SHA1/library")->Apply(sizes);
BENCHMARK(over_bytes<openssl<kSha1>>)->Name("SHA1/openssl")->Apply(sizes);
BENCHMARK(over_bytes<libavutil_sha1>)->Name("SHA1/libavutil")->Apply(sizes);
BENCHMARK(over_bytes<nettle_sha1>)->Name("SHA1/nettle")->Apply(sizes);
BENCHMARK(over_bytes<glib<G_CHECKSUM_SHA1>>)->Name("SHA1/glib")->Apply(sizes);

}  // namespace
