// DES and Triple DES compared with OpenSSL, nettle and libavutil. Each call sets its key, as in
// real use.
#include "zxdes.h"

#include <benchmark/benchmark.h>
#include <nettle/des.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

extern "C" {
#include <libavutil/des.h>
#include <libavutil/mem.h>
}

#include <cstdlib>
#include <vector>

namespace {

constexpr std::uint8_t kKey[] = "a key of 24 bytes, never";  // and a NUL, which is not used
constexpr std::size_t kDes = 8;
constexpr std::size_t kTripleDes = 24;

using Cipher = void (*)(const std::uint8_t* in, std::uint8_t* out, std::size_t size);

template <std::size_t kKeySize>
void ours(const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    zxdes_api_done(0, in, out, static_cast<std::uint32_t>(size), kKey, kKeySize);
}

template <std::size_t kKeySize>
void openssl(const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    // Single DES needs the legacy provider. Ciphers are fetched once, and contexts are reused.
    static OSSL_PROVIDER* const legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    static OSSL_PROVIDER* const standard = OSSL_PROVIDER_load(nullptr, "default");
    static EVP_CIPHER* const cipher =
        legacy != nullptr && standard != nullptr
            ? EVP_CIPHER_fetch(nullptr, kKeySize == kDes ? "DES-ECB" : "DES-EDE3-ECB", nullptr)
            : nullptr;
    static EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    int done = 0;
    if (EVP_EncryptInit_ex2(context, cipher, kKey, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_set_padding(context, 0) != 1 ||
        EVP_EncryptUpdate(context, out, &done, in, static_cast<int>(size)) != 1) {
        std::abort();
    }
}

template <std::size_t kKeySize>
void nettle(const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    if constexpr (kKeySize == kDes) {
        des_ctx context;
        des_set_key(&context, kKey);
        des_encrypt(&context, size, out, in);
    } else {
        des3_ctx context;
        des3_set_key(&context, kKey);
        des3_encrypt(&context, size, out, in);
    }
}

template <std::size_t kKeySize>
void libavutil(const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    static AVDES* const context = av_des_alloc();
    av_des_init(context, kKey, kKeySize * 8, 0);
    av_des_crypt(context, out, in, static_cast<int>(size / 8), nullptr, 0);
}

template <Cipher kCipher>
void encrypts(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::vector<std::uint8_t> in(size, 0x5A);
    std::vector<std::uint8_t> out(size);
    for (auto _ : state) {
        kCipher(in.data(), out.data(), size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(8)->Arg(64)->Arg(1024)->Arg(1 << 20);
}

BENCHMARK(encrypts<ours<kDes>>)->Name("DES/library")->Apply(sizes);
BENCHMARK(encrypts<openssl<kDes>>)->Name("DES/openssl")->Apply(sizes);
BENCHMARK(encrypts<nettle<kDes>>)->Name("DES/nettle")->Apply(sizes);
BENCHMARK(encrypts<libavutil<kDes>>)->Name("DES/libavutil")->Apply(sizes);
BENCHMARK(encrypts<ours<kTripleDes>>)->Name("3DES/library")->Apply(sizes);
BENCHMARK(encrypts<openssl<kTripleDes>>)->Name("3DES/openssl")->Apply(sizes);
BENCHMARK(encrypts<nettle<kTripleDes>>)->Name("3DES/nettle")->Apply(sizes);
BENCHMARK(encrypts<libavutil<kTripleDes>>)->Name("3DES/libavutil")->Apply(sizes);

}  // namespace
