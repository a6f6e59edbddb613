#include "zxdes.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <random>

#include "bytes.hpp"
#include "stack.hpp"
#include "vectors.hpp"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;

constexpr std::uint8_t kEncrypt = 0;
constexpr std::uint8_t kDecrypt = 1;  // as any other value does
constexpr std::uint8_t kDirections[] = {kEncrypt, kDecrypt, 255};
constexpr std::size_t kBlock = ZXDES_BLOCK_SIZE;

// Storage that ends with its last byte, so that a touch beyond is seen.
Bytes noise(std::size_t size) {
    static std::minstd_rand engine;
    Bytes bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(engine() >> 8U);
    }
    return bytes;
}

int done(std::uint8_t direction, const std::uint8_t* in, std::uint8_t* out, std::size_t size,
         const Bytes& key) {
    return zxdes_api_done(direction, in, out, static_cast<std::uint32_t>(size), key.data(),
                          static_cast<std::uint8_t>(key.size()));
}

Bytes done(std::uint8_t direction, const Bytes& in, const Bytes& key) {
    Bytes out(in.size());
    EXPECT_EQ(done(direction, in.data(), out.data(), in.size(), key), 1);
    return out;
}

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t size) {
    const auto at = bytes.begin() + static_cast<long>(from);
    return {at, at + static_cast<long>(size)};
}

// OpenSSL's Triple DES under the keys that `key` stands for.
Bytes peer(std::uint8_t direction, const Bytes& in, const Bytes& key) {
    const std::size_t keys = key.size() / kBlock;
    Bytes all = slice(key, 0, std::min<std::size_t>(keys, 3) * kBlock);
    while (all.size() < 3 * kBlock) {
        all.push_back(all[all.size() % (keys * kBlock)]);
    }
    Bytes out(in.size());
    int size = 0;
    const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(),
                                                                             EVP_CIPHER_CTX_free);
    EVP_CipherInit_ex(context.get(), EVP_des_ede3_ecb(), nullptr, all.data(), nullptr,
                      direction == kEncrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    EVP_CipherUpdate(context.get(), out.data(), &size, in.data(), static_cast<int>(in.size()));
    EXPECT_EQ(size, static_cast<int>(in.size()));
    return out;
}

TEST(DesTest, GivesThePublishedValues) {
    EXPECT_EQ(done(kEncrypt, from_hex("4e6f772069732074"), from_hex("0123456789abcdef")),
              from_hex("3fa40e8a984d4815"));
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::size_t cases = 0;
    for (const char* const name :
         {"invperm", "permop", "subtab", "varkey", "vartext", "MMT1", "MMT2", "MMT3"}) {
        for (auto& record : zx::test::read_records("des/TECB" + std::string(name) + ".rsp")) {
            SCOPED_TRACE(std::string(name) + " " + record["section"] + " " + record["COUNT"]);
            const std::string same = record["KEYs"];
            const Bytes keys =
                from_hex(same + record["KEY1"] + same + record["KEY2"] + same + record["KEY3"]);
            const bool two = slice(keys, 0, kBlock) == slice(keys, 2 * kBlock, kBlock);
            const bool one = two && slice(keys, 0, kBlock) == slice(keys, kBlock, kBlock);
            const Bytes plain = from_hex(record["PLAINTEXT"]);
            const Bytes cipher = from_hex(record["CIPHERTEXT"]);
            for (std::size_t n = one ? 1 : two ? 2 : 3; n <= 3; ++n, ++cases) {
                const Bytes key = slice(keys, 0, n * kBlock);
                EXPECT_EQ(done(kEncrypt, plain, key), cipher);
                EXPECT_EQ(done(kDecrypt, cipher, key), plain);
            }
        }
    }
    EXPECT_EQ(cases, 3 * 470U + 20 * (3 + 2 + 1));
}

TEST(DesTest, AgreesWithOpensslForEveryKeyLengthAndPlace) {
    for (std::size_t key_size = kBlock; key_size <= 255; key_size += key_size < 40 ? 1 : 43) {
        const Bytes key = noise(key_size);
        for (std::size_t blocks = 1; blocks <= 10; ++blocks) {
            const std::size_t size = blocks * kBlock;
            const std::size_t shift = blocks % 8;
            SCOPED_TRACE(testing::Message() << key_size << " bytes of key, blocks: " << blocks);
            const Bytes in = noise(shift + size);
            const Bytes block = slice(in, shift, size);
            for (const std::uint8_t direction : kDirections) {
                const Bytes expected = peer(direction, block, key);
                Bytes out(size), same = in;
                std::uint8_t* const at = same.data() + shift;
                EXPECT_EQ(done(direction, at, out.data(), size, key), 1);
                EXPECT_EQ(out, expected);
                EXPECT_EQ(done(direction, at, at, size, key), 1);
                EXPECT_EQ(slice(same, shift, size), expected);
            }
        }
    }
}

TEST(DesTest, WorksBlockByBlockWhereBuffersOverlap) {
    constexpr std::size_t kFrom = 50, kSize = 13 * kBlock;
    const Bytes key = noise(24);
    for (std::size_t to = 0; to <= 100; ++to) {
        Bytes together = noise(100 + kSize), single = together;
        EXPECT_EQ(done(kEncrypt, &together[kFrom], &together[to], kSize, key), 1);
        for (std::size_t i = 0; i < kSize; i += kBlock) {
            EXPECT_EQ(done(kEncrypt, &single[kFrom + i], &single[to + i], kBlock, key), 1);
        }
        EXPECT_EQ(together, single) << to;
    }
}

TEST(DesTest, RefusesWithoutTouchingTheOutput) {
    const Bytes in = noise(16), key = noise(24);
    Bytes out = in;
    EXPECT_EQ(zxdes_api_done(0, nullptr, out.data(), 16, key.data(), 24), 0);
    EXPECT_EQ(zxdes_api_done(0, in.data(), nullptr, 16, key.data(), 24), 0);
    EXPECT_EQ(zxdes_api_done(0, in.data(), out.data(), 16, nullptr, 24), 0);
    for (const std::size_t size : {0U, 7U, 12U}) {
        EXPECT_EQ(done(kEncrypt, in.data(), out.data(), size, key), 0) << size;
    }
    EXPECT_EQ(done(kEncrypt, in.data(), out.data(), 16, slice(key, 0, 7)), 0);
    EXPECT_EQ(out, in);
}

TEST(DesTest, HelpersAreTheSameCipher) {
    for (int i = 0; i < 200; ++i) {
        const Bytes key = noise(kBlock), in = noise(kBlock);
        std::uint8_t schedule[ZXDES_ROUNDS][ZXDES_SUBKEY_BITS];
        zxdes_api_setsubkey(key.data(), schedule);
        for (const std::uint8_t direction : kDirections) {
            Bytes block = in;
            zxdes_api_des(block.data(), block.data(), schedule, direction);
            EXPECT_EQ(block, done(direction, in, key));
        }
    }
}

TEST(DesTest, HelpersKeepTheirBounds) {
    Bytes bits(12, 0xEE);
    zxdes_api_byte2bit(from_hex("a500").data(), bits.data(), 10);
    EXPECT_EQ(bits, from_hex("0100010000010001 0000 eeee"));
    Bytes bytes(3, 0xEE);
    zxdes_api_bit2byte(bits.data(), bytes.data(), 11);  // of 0xEE the lowest bit counts, which is 0
    EXPECT_EQ(bytes, from_hex("a500ee"));

    Bytes letters{'a', 'b', 'c', 'd', 'e'};
    zxdes_api_rotatel(letters.data(), 5, 5 * 7 + 2);
    zxdes_api_rotatel(letters.data(), 0, 1);
    EXPECT_EQ(letters, (Bytes{'c', 'd', 'e', 'a', 'b'}));
    zxdes_api_transform(letters.data(), letters.data(), from_hex("0503 0101").data(), 4);
    EXPECT_EQ(letters, (Bytes{'b', 'e', 'c', 'c', 'b'}));
    zxdes_api_transform(letters.data(), letters.data(), Bytes(65, 1).data(), 65);
    EXPECT_EQ(letters, (Bytes{'b', 'e', 'c', 'c', 'b'}));
}

// 48 bits as zxdes_api_done() keeps round keys and halves of blocks.
Bytes packed(const std::uint8_t* bits48) {
    Bytes bytes;
    for (const unsigned box : {7U, 5U, 3U, 1U, 6U, 4U, 2U, 0U}) {
        std::uint8_t six = 0;
        zxdes_api_bit2byte(bits48 + 6 * box, &six, 6);
        bytes.push_back(six >> 2U);
    }
    return bytes;
}

TEST(DesTest, LeavesNoSecretsOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes key = noise(24), in = noise(5 * kBlock);
    Bytes out(in.size()), half(64), bits(64);
    auto schedule = std::make_unique<std::uint8_t[][ZXDES_SUBKEY_BITS]>(ZXDES_ROUNDS);
    zxdes_api_setsubkey(key.data(), schedule.get());
    zxdes_api_byte2bit(&in[2 * kBlock], bits.data(), 64);
    zxdes_api_transform(bits.data(), half.data(), IP_Table, 64);
    zxdes_api_transform(half.data(), half.data(), E_Table, 48);
    const std::vector<Bytes> secrets{
        slice(key, 0, kBlock),
        packed(schedule[0]),
        Bytes(schedule[15], schedule[15] + ZXDES_SUBKEY_BITS),
        slice(in, 2 * kBlock, kBlock),
        packed(half.data()),
        bits,
    };
    const std::function<void()> works[] = {
        [&] { done(kEncrypt, in.data(), out.data(), in.size(), key); },
        [&] { done(kDecrypt, out.data(), out.data(), in.size(), key); },
        [&] { zxdes_api_setsubkey(key.data(), schedule.get()); },
        [&] { zxdes_api_des(&in[2 * kBlock], out.data(), schedule.get(), kEncrypt); },
    };
    for (const Bytes& secret : secrets) {
        for (const auto& work : works) {
            EXPECT_FALSE(zx::test::is_left_on_stack(work, secret.data(), secret.size()))
                << "secret " << &secret - secrets.data() << " of work " << &work - works;
        }
    }
}

}  // namespace
