// AES compared with OpenSSL and libavutil. Each call sets its key.
#include "zxaes.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

extern "C" {
#include <libavutil/aes.h>
#include <libavutil/mem.h>
}

#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kFeedback = 3;

struct Message {
    std::uint32_t direction;
    std::uint32_t mode;
    std::uint8_t key_size;
    std::uint8_t key[32];
    std::vector<std::uint8_t> in, out;
};

class Zxcommon {
public:
    void process(Message& m) {
        zxaes_api_done(m.direction, m.mode, m.in.data(), m.out.data(),
                       static_cast<std::uint32_t>(m.in.size()), m.key, m.key_size);
    }
};

class OpenSsl {
public:
    OpenSsl() = default;
    OpenSsl(const OpenSsl&) = delete;
    OpenSsl& operator=(const OpenSsl&) = delete;
    ~OpenSsl() {
        EVP_CIPHER_CTX_free(ctx_);
        EVP_CIPHER_free(cipher_);
    }

    void process(Message& m) {
        if (cipher_ == nullptr) {
            const char* const mode = m.mode == ZXAES_ECB   ? "-ECB"
                                     : m.mode == ZXAES_CBC ? "-CBC"
                                                           : "-CFB";
            const std::string name = "AES-" + std::to_string(8 * m.key_size) + mode;
            cipher_ = EVP_CIPHER_fetch(nullptr, name.c_str(), nullptr);
        }
        constexpr std::uint8_t kIv[ZXAES_BLOCK_SIZE]{};
        int size = 0;
        EVP_CipherInit_ex(ctx_, cipher_, nullptr, m.key, kIv, m.direction == ZXAES_ENCRYPT);
        EVP_CIPHER_CTX_set_padding(ctx_, 0);
        EVP_CipherUpdate(ctx_, m.out.data(), &size, m.in.data(), static_cast<int>(m.in.size()));
    }

private:
    EVP_CIPHER* cipher_ = nullptr;
    EVP_CIPHER_CTX* ctx_ = EVP_CIPHER_CTX_new();
};

class Libavutil {
public:
    Libavutil() = default;
    Libavutil(const Libavutil&) = delete;
    Libavutil& operator=(const Libavutil&) = delete;
    ~Libavutil() { av_free(aes_); }

    void process(Message& m) {
        std::uint8_t iv[ZXAES_BLOCK_SIZE]{};
        const int decrypt = m.direction == ZXAES_DECRYPT;
        av_aes_init(aes_, m.key, 8 * m.key_size, decrypt);
        av_aes_crypt(aes_, m.out.data(), m.in.data(),
                     static_cast<int>(m.in.size() / ZXAES_BLOCK_SIZE),
                     m.mode == ZXAES_CBC ? iv : nullptr, decrypt);
    }

private:
    AVAES* aes_ = av_aes_alloc();
};

template <typename Peer, std::uint32_t mode, std::uint32_t direction>
void messages(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(1));
    Message message{direction, mode, static_cast<std::uint8_t>(state.range(0) / 8), {}, {}, {}};
    message.in.resize(size, 0x47);
    message.out.resize(size);
    Peer peer;
    for (auto _ : state) {
        peer.process(message);
        benchmark::DoNotOptimize(message.out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(1));
}

void fill(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"key", "bytes"})->ArgsProduct({{128, 256}, {176, 1 << 20}});
}

#define ZX_BENCH(name, mode, direction)                                                 \
    BENCHMARK(messages<Zxcommon, mode, direction>)->Name(name "/library")->Apply(fill); \
    BENCHMARK(messages<OpenSsl, mode, direction>)->Name(name "/openssl")->Apply(fill)
#define ZX_BENCH_WITH_LIBAVUTIL(name, mode, direction) \
    ZX_BENCH(name, mode, direction);                   \
    BENCHMARK(messages<Libavutil, mode, direction>)->Name(name "/libavutil")->Apply(fill)

ZX_BENCH_WITH_LIBAVUTIL("AES_ECB_encrypt", ZXAES_ECB, ZXAES_ENCRYPT);
ZX_BENCH_WITH_LIBAVUTIL("AES_ECB_decrypt", ZXAES_ECB, ZXAES_DECRYPT);
ZX_BENCH_WITH_LIBAVUTIL("AES_CBC_encrypt", ZXAES_CBC, ZXAES_ENCRYPT);
ZX_BENCH_WITH_LIBAVUTIL("AES_CBC_decrypt", ZXAES_CBC, ZXAES_DECRYPT);
// The peer uses the standard CFB-128, which takes the same amount of work.
ZX_BENCH("AES_CFB_encrypt", kFeedback, ZXAES_ENCRYPT);
ZX_BENCH("AES_CFB_decrypt", kFeedback, ZXAES_DECRYPT);

}  // namespace
