#include "zxaes.h"

#include <gmock/gmock.h>
#define OPENSSL_SUPPRESS_DEPRECATED  // of AES_KEY, which lets a schedule be used for what it is not
#include <openssl/aes.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bytes.hpp"
#include "log_capture.hpp"
#include "stack.hpp"
#include "vectors.hpp"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;
using zx::test::noise;

constexpr std::uint32_t kModes[] = {ZXAES_ECB, ZXAES_CBC, 3};
constexpr std::size_t kBlock = ZXAES_BLOCK_SIZE;
constexpr std::uint32_t kDirections[] = {ZXAES_ENCRYPT, ZXAES_DECRYPT};

std::uint32_t size_of(const Bytes& bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

Bytes done(std::uint32_t direction, std::uint32_t mode, const Bytes& key, Bytes bytes) {
    EXPECT_EQ(zxaes_api_done(direction, mode, &bytes[0], &bytes[0], size_of(bytes), &key[0],
                             static_cast<std::uint8_t>(key.size())),
              1);
    return bytes;
}

std::unique_ptr<zxaes_ctt> keyed(std::uint32_t direction, const Bytes& key) {
    auto ctx = std::make_unique<zxaes_ctt>();
    (direction == ZXAES_ENCRYPT ? zxaes_innerapi_setEncKey : zxaes_innerapi_setDecKey)(
        ctx.get(), &key[0], 8 * size_of(key));
    return ctx;
}

// By the inner operations, in chains whose next input is the result, or in CBC the one before that.
Bytes inner(int turns, std::uint32_t way, const Bytes& key, Bytes iv, Bytes text) {
    const auto ctx = keyed(way, key);
    Bytes previous = iv;
    for (; turns != 0; --turns) {
        if (iv.empty()) {
            zxaes_innerapi_cryptECB(ctx.get(), way, &text[0], &text[0]);
        } else {
            zxaes_innerapi_cryptCBC(ctx.get(), way, size_of(text), &iv[0], &text[0], &text[0]);
            text.swap(previous);
        }
    }
    return iv.empty() ? text : previous;
}

TEST(AesTest, MeetsThePublishedVectors) {
    std::size_t count = 0;
    for (const std::string kind : {"GFSbox", "KeySbox", "VarKey", "VarTxt", "MMT", "MCT"}) {
        for (const std::string size : {"128", "192", "256"}) {
            for (const std::string mode : {"ECB", "CBC"}) {
                for (auto& r : zx::test::read_records("aes/" + mode + kind + size + ".rsp")) {
                    const std::uint32_t way = r["section"] == "DECRYPT";
                    const Bytes key = from_hex(r["KEY"]), iv = from_hex(r["IV"]);
                    const Bytes in = from_hex(r[way == 0 ? "PLAINTEXT" : "CIPHERTEXT"]);
                    ASSERT_EQ(kind != "MCT" && iv == Bytes(iv.size())
                                  ? done(way, mode == "ECB" ? ZXAES_ECB : ZXAES_CBC, key, in)
                                  : inner(kind == "MCT" ? 1000 : 1, way, key, iv, in),
                              from_hex(r[way == 0 ? "CIPHERTEXT" : "PLAINTEXT"]))
                        << mode << kind << size << ' ' << r["COUNT"];
                    ++count;
                }
            }
        }
    }
    if (count == 0) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    EXPECT_EQ(count, 5476U);
}

TEST(AesTest, WorksBlockByBlockWhereBuffersOverlap) {
    constexpr std::size_t kFrom = 163, kSize = 13 * kBlock;  // at odd addresses, too
    const Bytes key = noise(16);
    const auto decrypt = [&key](const std::uint8_t& in, std::uint8_t& out, std::uint32_t size) {
        zxaes_api_done(ZXAES_DECRYPT, ZXAES_ECB, &in, &out, size, &key[0], 16);
    };
    for (std::size_t to = 0; to <= 2 * kFrom; to += 5) {
        Bytes together = noise(2 * kFrom + kSize), single = together;
        decrypt(together[kFrom], together[to], kSize);
        for (std::size_t i = 0; i < kSize; i += kBlock) {
            decrypt(single[kFrom + i], single[to + i], kBlock);
        }
        EXPECT_EQ(together, single) << to;
    }
}

TEST(AesTest, FeedsBackThroughTheInverseRoundsWithTheKeysOfEncryption) {
    for (const std::size_t key_size : {16U, 24U, 32U}) {
        const Bytes key = noise(key_size), text = noise(20 * kBlock);
        AES_KEY schedule;
        AES_set_encrypt_key(&key[0], static_cast<int>(8 * key_size), &schedule);
        Bytes cipher, pad(kBlock);
        for (auto at = text.begin(); at != text.end();) {
            AES_decrypt(&pad[0], &pad[0], &schedule);
            for (auto& byte : pad) {
                cipher.push_back(byte ^= *at++);
            }
        }
        EXPECT_EQ(done(ZXAES_ENCRYPT, 3, key, text), cipher);
        EXPECT_EQ(done(ZXAES_DECRYPT, 0, key, cipher), text);
        const auto ctx = keyed(ZXAES_ENCRYPT, key);
        for (const auto way : kDirections) {  // in pieces of 1, 2, 3 ... bytes
            Bytes bytes = way == ZXAES_ENCRYPT ? text : cipher, iv(kBlock);
            std::uint32_t offset = 0;
            for (std::uint32_t at = 0, piece = 1; at < size_of(bytes); at += piece++) {
                zxaes_innerapi_cryptCFB128(ctx.get(), way, std::min(piece, size_of(bytes) - at),
                                           &offset, &iv[0], &bytes[at], &bytes[at]);
            }
            EXPECT_EQ(bytes, way == ZXAES_ENCRYPT ? cipher : text);
        }
    }
}

TEST(AesTest, ProcessesNoMoreThanItSays) {
    const auto ctx = keyed(ZXAES_ENCRYPT, noise(16));
    for (const std::uint32_t size : {15U, 40U, 3232U, 3300U}) {
        const std::uint32_t bytes = std::min(size, 3232U), whole = bytes / 16 * 16;
        const Bytes text = noise(size);
        Bytes iv(kBlock), out = text;
        zxaes_innerapi_cryptCBC(ctx.get(), 0, size, &iv[0], &out[0], &out[0]);
        EXPECT_TRUE(std::equal(out.begin() + whole, out.end(), text.begin() + whole));
        EXPECT_EQ(iv[15], whole == 0 ? 0 : out[whole - 1]);
        out = text;
        std::uint32_t offset = 0;
        zxaes_innerapi_cryptCFB128(ctx.get(), 0, size, &offset, &iv[0], &out[0], &out[0]);
        EXPECT_TRUE(std::equal(out.begin() + bytes, out.end(), text.begin() + bytes));
        EXPECT_EQ(iv[(bytes - 1) % kBlock], out[bytes - 1]);
        EXPECT_EQ(offset, bytes % kBlock);
    }
}

TEST(AesTest, RefusesWithoutTouchingAnything) {
    zx::test::LogCapture log;
    const Bytes key = noise(32);
    const std::uint8_t* const in = &key[0];
    Bytes out = key, iv = key;
    EXPECT_EQ(zxaes_api_done(0, 1, nullptr, nullptr, 20, nullptr, 8), 0);
    EXPECT_EQ(zxaes_api_done(0, 1, in, nullptr, 20, nullptr, 8), 0);
    EXPECT_EQ(zxaes_api_done(0, 1, in, &out[0], 20, nullptr, 8), 0);
    EXPECT_EQ(zxaes_api_done(0, 1, in, &out[0], 20, in, 8), 0);
    EXPECT_EQ(zxaes_api_done(0, 1, in, &out[0], 20, in, 16), 0);
    EXPECT_THAT(log.take(), testing::ElementsAre("[ERROR][zxaes]Param error####bufin",
                                                 "[ERROR][zxaes]Param error####bufout",
                                                 "[ERROR][zxaes]Param error####key",
                                                 "[ERROR][zxaes]Keylen(8) must be 32,16 or 24",
                                                 "[ERROR][zxaes]datalen(20) must be 16*N"));
    EXPECT_EQ(zxaes_api_done(2, 1, in, &out[0], 32, in, 16), 1);

    zxaes_ctt unset{};
    zxaes_innerapi_setEncKey(&unset, in, 100);
    zxaes_innerapi_setDecKey(&unset, in, 0);
    zxaes_innerapi_cryptECB(&unset, 0, in, &out[0]);
    zxaes_innerapi_cryptCBC(&unset, 0, 32, &iv[0], in, &out[0]);
    std::uint32_t offset = 0;
    zxaes_innerapi_cryptCFB128(&unset, 0, 32, &offset, &iv[0], in, &out[0]);

    testing::internal::CaptureStdout();
    zxaes_innerapi_setEncKey(nullptr, in, 128);
    zxaes_innerapi_setDecKey(nullptr, in, 128);
    zxaes_innerapi_cryptECB(nullptr, 0, in, &out[0]);
    offset = 16;
    zxaes_innerapi_cryptCFB128(&unset, 0, 32, &offset, &iv[0], in, &out[0]);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("zxaes_innerapi_setEncKey [0-9]+ zx_null\n"
                                      "zxaes_innerapi_setDecKey [0-9]+ zx_null\n"
                                      "zxaes_innerapi_cryptECB [0-9]+ zx_null\n"
                                      "zxaes_innerapi_cryptCFB128 [0-9]+ n:16 too big\n"));
    EXPECT_EQ(out, key);
    EXPECT_EQ(iv, key);
}

TEST(AesTest, LeavesNothingOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes key = noise(32), cipher = noise(15 * kBlock);
    Bytes schedules;
    for (const auto way : kDirections) {
        const auto ctx = keyed(way, key);
        const auto* const at = reinterpret_cast<const std::uint8_t*>(ctx->roundKeys);
        schedules.insert(schedules.end(), at, at + 15 * kBlock);
    }
    for (const std::uint32_t mode : kModes) {
        const Bytes text = done(ZXAES_DECRYPT, mode, key, cipher);
        Bytes out = cipher, secrets = schedules;
        secrets.insert(secrets.end(), text.begin(), text.end());
        for (const auto way : kDirections) {
            const Bytes& in = way == ZXAES_ENCRYPT ? text : cipher;
            const auto work = [&] {
                zxaes_api_done(way, mode, &in[0], &out[0], size_of(in), &key[0], 32);
            };
            for (std::size_t at = 0; at < secrets.size(); at += 4) {
                ASSERT_FALSE(zx::test::is_left_on_stack(work, &secrets[at], 4)) << mode << way;
            }
        }
    }
}

}  // namespace
