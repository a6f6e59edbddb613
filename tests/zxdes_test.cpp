#include "zxdes.h"

#include <gtest/gtest.h>

#include <memory>

#include "bytes.hpp"
#include "stack.hpp"
#include "vectors.hpp"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;
using zx::test::noise;

constexpr std::uint8_t kEncrypt = 0;
constexpr std::uint8_t kDecrypt = 1;  // as any other value does
constexpr std::size_t kBlock = ZXDES_BLOCK_SIZE;

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

TEST(DesTest, GivesThePublishedValues) {
    EXPECT_EQ(done(kEncrypt, from_hex("4e6f772069732074"), from_hex("0123456789abcdef")),
              from_hex("3fa40e8a984d4815"));
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::size_t cases = 0;
    for (const std::string name :
         {"invperm", "permop", "subtab", "varkey", "vartext", "MMT1", "MMT2", "MMT3"}) {
        for (auto& record : zx::test::read_records("des/TECB" + name + ".rsp")) {
            SCOPED_TRACE(name + " " + record["section"] + " " + record["COUNT"]);
            const std::string same = record["KEYs"];
            const std::string keys[] = {same + record["KEY1"], same + record["KEY2"],
                                        same + record["KEY3"]};
            const std::size_t needed = keys[0] != keys[2] ? 3 : keys[0] != keys[1] ? 2 : 1;
            const Bytes plain = from_hex(record["PLAINTEXT"]);
            const Bytes cipher = from_hex(record["CIPHERTEXT"]);
            std::string given;
            for (std::size_t n = 1; n <= 3; ++n) {
                given += keys[n - 1];
                if (n >= needed) {
                    EXPECT_EQ(done(kEncrypt, plain, from_hex(given)), cipher);
                    EXPECT_EQ(done(kDecrypt, cipher, from_hex(given)), plain);
                    ++cases;
                }
            }
        }
    }
    EXPECT_EQ(cases, 3 * 470U + 20 * (3 + 2 + 1));
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
    EXPECT_EQ(zxdes_api_done(0, in.data(), out.data(), 12, key.data(), 24), 0);
    EXPECT_EQ(zxdes_api_done(0, in.data(), out.data(), 0, key.data(), 24), 0);
    EXPECT_EQ(zxdes_api_done(0, in.data(), out.data(), 16, key.data(), 7), 0);
    EXPECT_EQ(out, in);
}

TEST(DesTest, HelpersAreTheSameCipher) {
    for (int i = 0; i < 200; ++i) {
        const Bytes key = noise(kBlock), in = noise(kBlock);
        std::uint8_t schedule[ZXDES_ROUNDS][ZXDES_SUBKEY_BITS];
        zxdes_api_setsubkey(key.data(), schedule);
        for (const std::uint8_t direction : {kEncrypt, kDecrypt, std::uint8_t{255}}) {
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

// 48 bits as zxdes_api_done() keeps round keys.
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
    const Bytes key = noise(8), in = noise(5 * kBlock), block(in.begin() + 16, in.begin() + 24);
    Bytes out(in.size()), bits(64);
    auto schedule = std::make_unique<std::uint8_t[][ZXDES_SUBKEY_BITS]>(ZXDES_ROUNDS);
    zxdes_api_setsubkey(key.data(), schedule.get());
    zxdes_api_byte2bit(block.data(), bits.data(), 64);
    const Bytes secrets[] = {key, packed(schedule[0]), block, bits};
    const std::function<void()> works[] = {
        [&] { done(kEncrypt, in.data(), out.data(), in.size(), key); },
        [&] { done(kDecrypt, out.data(), out.data(), in.size(), key); },
        [&] { zxdes_api_setsubkey(key.data(), schedule.get()); },
        [&] { zxdes_api_des(block.data(), out.data(), schedule.get(), kEncrypt); },
    };
    for (const Bytes& secret : secrets) {
        for (const auto& work : works) {
            EXPECT_FALSE(zx::test::is_left_on_stack(work, secret.data(), secret.size()))
                << "secret " << &secret - secrets << " of work " << &work - works;
        }
    }
}

}  // namespace
