// AES and DES: published vectors, what the inner operations promise, what is left on the stack. The
// fuzz target compares them with their plain algorithms.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "bytes.hpp"
#include "stack.hpp"
#include "vectors.hpp"
#include "zxaes.h"
#include "zxdes.h"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;
using zx::test::noise;

constexpr std::size_t kBlock = ZXAES_BLOCK_SIZE;
constexpr std::uint8_t kEncrypt = 0, kDecrypt = 1;
constexpr std::uint8_t kWays[] = {kEncrypt, kDecrypt};
constexpr std::uint32_t kModes[] = {ZXAES_ECB, ZXAES_CBC, 3};

std::uint32_t size_of(const Bytes& bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

Bytes aes(std::uint32_t way, std::uint32_t mode, const Bytes& key, Bytes bytes) {
    EXPECT_EQ(zxaes_api_done(way, mode, &bytes[0], &bytes[0], size_of(bytes), &key[0],
                             static_cast<std::uint8_t>(key.size())),
              1);
    return bytes;
}

std::unique_ptr<zxaes_ctt> keyed(std::uint32_t way, const Bytes& key) {
    auto ctx = std::make_unique<zxaes_ctt>();
    (way == kEncrypt ? zxaes_innerapi_setEncKey : zxaes_innerapi_setDecKey)(ctx.get(), &key[0],
                                                                            8 * size_of(key));
    return ctx;
}

// By the inner operations, in chains whose next input is the result, or in CBC the one before that.
Bytes aes_inner(int turns, std::uint32_t way, const Bytes& key, Bytes iv, Bytes bytes) {
    const auto ctx = keyed(way, key);
    Bytes previous = iv;
    for (; turns != 0; --turns) {
        if (iv.empty()) {
            zxaes_innerapi_cryptECB(ctx.get(), way, &bytes[0], &bytes[0]);
        } else {
            zxaes_innerapi_cryptCBC(ctx.get(), way, size_of(bytes), &iv[0], &bytes[0], &bytes[0]);
            bytes.swap(previous);
        }
    }
    return iv.empty() ? bytes : previous;
}

int des(std::uint8_t way, const std::uint8_t* in, std::uint8_t* out, std::size_t size,
        const Bytes& key) {
    return zxdes_api_done(way, in, out, static_cast<std::uint32_t>(size), key.data(),
                          static_cast<std::uint8_t>(key.size()));
}

Bytes des(std::uint8_t way, const Bytes& in, const Bytes& key) {
    Bytes out(in.size());
    EXPECT_EQ(des(way, in.data(), out.data(), in.size(), key), 1);
    return out;
}

// Both ways, by all operations that take its IV and its size.
void check_published(const std::string& file, std::map<std::string, std::string>& record) {
    const Bytes plain = from_hex(record["PLAINTEXT"]), coded = from_hex(record["CIPHERTEXT"]);
    const Bytes iv = from_hex(record["IV"]);
    if (file.starts_with("des")) {
        const std::string same = record["KEYs"];
        const Bytes key =
            from_hex(same + record["KEY1"] + same + record["KEY2"] + same + record["KEY3"]);
        EXPECT_EQ(des(kEncrypt, plain, key), coded);
        EXPECT_EQ(des(kDecrypt, coded, key), plain);
        return;
    }
    const Bytes key = from_hex(record["KEY"]);
    if (file.find("MCT") != file.npos) {  // chains, each in its own direction
        const bool encrypts = record["section"] == "ENCRYPT";
        EXPECT_EQ(
            aes_inner(1000, encrypts ? kEncrypt : kDecrypt, key, iv, encrypts ? plain : coded),
            encrypts ? coded : plain);
        return;
    }
    if (iv == Bytes(iv.size())) {
        const std::uint32_t mode = iv.empty() ? ZXAES_ECB : ZXAES_CBC;
        EXPECT_EQ(aes(kEncrypt, mode, key, plain), coded);
        EXPECT_EQ(aes(kDecrypt, mode, key, coded), plain);
    }
    if (!iv.empty() || plain.size() == kBlock) {
        EXPECT_EQ(aes_inner(1, kEncrypt, key, iv, plain), coded);
        EXPECT_EQ(aes_inner(1, kDecrypt, key, iv, coded), plain);
    }
}

TEST(CipherTest, MeetsThePublishedVectors) {
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::size_t count = 0;
    for (const std::string cipher : {"aes", "des"}) {
        for (const auto& file : std::filesystem::directory_iterator(zx::test::vectors(cipher))) {
            const std::string name = cipher + "/" + file.path().filename().string();
            if (!name.ends_with(".rsp")) {
                continue;
            }
            for (auto& record : zx::test::read_records(name)) {
                SCOPED_TRACE(name + " " + record["section"] + " " + record["COUNT"]);
                check_published(name, record);
                ++count;
            }
        }
    }
    EXPECT_EQ(count, 5476U + 530U);
}

TEST(CipherTest, MeetsTheExamplesOfTheStandards) {
    const Bytes key = from_hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    const Bytes block = from_hex("00112233445566778899aabbccddeeff");  // FIPS 197, C
    for (const auto& [size, coded] : {std::pair{16, "69c4e0d86a7b0430d8cdb78070b4c55a"},
                                      {24, "dda97ca4864cdfe06eaf70a0ec0d7191"},
                                      {32, "8ea2b7ca516745bfeafc49904b496089"}}) {
        const Bytes part(key.begin(), key.begin() + size);
        EXPECT_EQ(aes(kEncrypt, ZXAES_ECB, part, block), from_hex(coded));
        EXPECT_EQ(aes(kDecrypt, ZXAES_CBC, part, from_hex(coded)), block);
    }
    EXPECT_EQ(des(kEncrypt, from_hex("4e6f772069732074"), from_hex("0123456789abcdef")),
              from_hex("3fa40e8a984d4815"));  // FIPS 81, B
}

TEST(AesTest, NeedsAKeyAndAContext) {
    const Bytes in = noise(32);
    Bytes out = in, iv = in;
    std::uint32_t offset = 0;
    zxaes_ctt unset{};
    testing::internal::CaptureStdout();
    zxaes_innerapi_setEncKey(&unset, &in[0], 100);
    zxaes_innerapi_setDecKey(&unset, &in[0], 0);
    zxaes_innerapi_cryptECB(&unset, 0, &in[0], &out[0]);
    zxaes_innerapi_cryptCBC(&unset, 0, 32, &iv[0], &in[0], &out[0]);
    zxaes_innerapi_cryptCFB128(&unset, 0, 32, &offset, &iv[0], &in[0], &out[0]);
    offset = 16;
    zxaes_innerapi_cryptCFB128(&unset, 0, 32, &offset, &iv[0], &in[0], &out[0]);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("zxaes_innerapi_cryptCFB128 [0-9]+ n:16 too big\n"));
    EXPECT_EQ(out, in);
    EXPECT_EQ(iv, in);
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

TEST(CipherTest, LeavesNoSecretsOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes key = noise(32), coded = noise(15 * kBlock),
                block(coded.begin(), coded.begin() + 8);
    Bytes out = coded, bits(64);
    const auto expect_wiped = [](const std::function<void()>& work, const Bytes& secret,
                                 auto piece) {
        for (std::size_t at = 0; at < secret.size(); at += piece) {
            ASSERT_FALSE(zx::test::is_left_on_stack(work, &secret[at], piece)) << at;
        }
    };
    for (const auto mode : kModes) {
        const Bytes text = aes(kDecrypt, mode, key, coded);
        for (const auto way : kWays) {
            SCOPED_TRACE(testing::Message() << mode << " " << int{way});
            const Bytes& in = way == kEncrypt ? text : coded;
            const auto work = [&] {
                zxaes_api_done(way, mode, &in[0], &out[0], size_of(in), &key[0], 32);
            };
            expect_wiped(work, text, 4U);
            for (const auto any_way : kWays) {
                const auto ctx = keyed(any_way, key);
                const auto* const keys = reinterpret_cast<const std::uint8_t*>(ctx->roundKeys);
                expect_wiped(work, Bytes(keys, keys + 15 * kBlock), 4U);
            }
        }
    }
    auto schedule = std::make_unique<std::uint8_t[][ZXDES_SUBKEY_BITS]>(ZXDES_ROUNDS);
    zxdes_api_setsubkey(key.data(), schedule.get());
    zxdes_api_byte2bit(block.data(), bits.data(), 64);
    const Bytes des_key(key.begin(), key.begin() + 8);
    for (const Bytes& secret : {des_key, packed(schedule[0]), block, bits}) {
        SCOPED_TRACE(zx::test::to_hex(&secret[0], 8));
        const std::size_t size = secret.size();
        expect_wiped([&] { des(kEncrypt, &coded[0], &out[0], 40, des_key); }, secret, size);
        expect_wiped([&] { des(kDecrypt, &out[0], &out[0], 40, des_key); }, secret, size);
        expect_wiped([&] { zxdes_api_setsubkey(&key[0], schedule.get()); }, secret, size);
        expect_wiped([&] { zxdes_api_des(&block[0], &out[0], schedule.get(), kEncrypt); }, secret,
                     size);
    }
}

}  // namespace
