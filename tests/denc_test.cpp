// Ciphers, digests and checks: published vectors, and that nothing secret is left on the stack. The
// fuzz target compares them with the plain algorithms.
#include <endian.h>
#include <gmock/gmock.h>

#include <bit>
#include <cstring>
#include <filesystem>
#include <memory>

#include "bytes.hpp"
#include "sha1.h"
#include "stack.hpp"
#include "vectors.hpp"
#include "zxaes.h"
#include "zxcrc.h"
#include "zxdes.h"
#include "zxmd5.h"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;
using zx::test::to_hex;
using Record = std::map<std::string, std::string>;

constexpr std::uint8_t kEncrypt = 0, kDecrypt = 1;

std::uint32_t size_of(const Bytes& bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

zxaes_ctt keyed(std::uint32_t way, const Bytes& key) {
    zxaes_ctt ctx;
    (way == kEncrypt ? zxaes_innerapi_setEncKey : zxaes_innerapi_setDecKey)(&ctx, key.data(),
                                                                            8 * size_of(key));
    return ctx;
}

// Runs AES `turns` times. The next input is the result, or in CBC the result before that.
Bytes aes(int turns, std::uint32_t way, const Bytes& key, Bytes iv, Bytes bytes) {
    zxaes_ctt ctx = keyed(way, key);
    Bytes previous = iv;
    for (; turns != 0; --turns) {
        for (std::size_t at = 0; iv.empty() && at < bytes.size(); at += ZXAES_BLOCK_SIZE) {
            zxaes_innerapi_cryptECB(&ctx, way, &bytes[at], &bytes[at]);
        }
        if (!iv.empty()) {
            zxaes_innerapi_cryptCBC(&ctx, way, size_of(bytes), &iv[0], &bytes[0], &bytes[0]);
            bytes.swap(previous);
        }
    }
    return iv.empty() ? bytes : previous;
}

Bytes des(std::uint8_t way, const Bytes& in, const Bytes& key) {
    Bytes out(in.size());
    zxdes_api_done(way, in.data(), out.data(), size_of(in), key.data(),
                   static_cast<std::uint8_t>(key.size()));
    return out;
}

// Checks both directions. A chain has only one.
void check_cipher(const std::string& file, Record& record) {
    const Bytes plain = from_hex(record["PLAINTEXT"]), coded = from_hex(record["CIPHERTEXT"]);
    const std::string same = record["KEYs"];
    const Bytes key = from_hex(record["KEY"] + same + record["KEY1"] + same + record["KEY2"] +
                               same + record["KEY3"]);
    const int turns = file.find("MCT") != file.npos ? 1000 : 1;
    for (const std::uint8_t way : {kEncrypt, kDecrypt}) {
        const Bytes &from = way == kEncrypt ? plain : coded, &to = way == kEncrypt ? coded : plain;
        if (turns == 1 || record["section"] == (way == kEncrypt ? "ENCRYPT" : "DECRYPT")) {
            EXPECT_EQ(file.starts_with("des") ? des(way, from, key)
                                              : aes(turns, way, key, from_hex(record["IV"]), from),
                      to)
                << file << " " << record["section"] << " " << record["COUNT"];
        }
    }
}

std::string md5(const Bytes& message) {
    char out[ZXMD5_TEXT_SIZE];
    zxmd5_api_outStr(message.data(), message.size(), out);
    return out;
}

std::string sha1(const Bytes& message) {
    SHA1Context context;
    SHA1Reset(&context);
    SHA1Input(&context, message.data(), size_of(message));
    SHA1Result(&context);
    for (std::uint32_t& word : context.Intermediate_Hash) {
        word = htobe32(word);
    }
    return to_hex(context.Intermediate_Hash, 20);
}

TEST(DencTest, MeetsThePublishedVectors) {
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::size_t count = 0;
    for (const std::string cipher : {"aes", "des"}) {
        for (const auto& file : std::filesystem::directory_iterator(zx::test::vectors(cipher))) {
            const std::string name = cipher + "/" + file.path().filename().string();
            for (auto& record :
                 name.ends_with(".rsp") ? zx::test::read_records(name) : std::vector<Record>()) {
                check_cipher(name, record);
                ++count;
            }
        }
    }
    for (const std::string file :
         {"md5/rfc-1321.txt", "sha1/SHA1ShortMsg.rsp", "sha1/SHA1LongMsg.rsp"}) {
        for (const auto& record : zx::test::read_records(file)) {
            Bytes message = from_hex(record.at("Msg"));
            message.resize(std::stoul(record.at("Len")) / 8);  // the empty message is "00"
            EXPECT_EQ((file[0] == 'm' ? md5 : sha1)(message), record.at("MD"));
            ++count;
        }
    }
    const auto monte_carlo = zx::test::read_records("sha1/SHA1Monte.rsp");
    std::string seed = monte_carlo.at(0).at("Seed");
    for (std::size_t i = 1; i <= 100; ++i) {
        std::string last = seed + seed + seed;
        for (int round = 0; round < 1000; ++round) {
            last = last.substr(40) + sha1(from_hex(last));
        }
        ASSERT_EQ(seed = last.substr(80), monte_carlo.at(i).at("MD"));
    }
    const std::map<std::string, std::uint32_t (*)(const Bytes&)> checks{
        {"CRC-16/MODBUS",
         [](const Bytes& m) { return std::uint32_t{zxcrc_api_CRC16(m.data(), size_of(m))}; }},
        {"CRC-32/MPEG-2", [](const Bytes& m) { return zxcrc_api_CRC32(m.data(), size_of(m)); }},
        {"CRC-16/XMODEM",
         [](const Bytes& m) { return std::uint32_t{zxcrc_api_CRC(m.data(), size_of(m))}; }},
    };
    std::ifstream in(zx::test::vectors("crc/crc.csv"));
    for (std::string name, message, expected, source;
         std::getline(in, name, ',') && std::getline(in, message, ',') &&
         std::getline(in, expected, ',') && std::getline(in, source);) {
        if (checks.contains(name)) {
            EXPECT_EQ(checks.at(name)(from_hex(message)), std::stoul(expected, nullptr, 16))
                << source;
            ++count;
        }
    }
    EXPECT_EQ(count, 5476U + 530U + 7U + 65U + 64U + 12U);
}

TEST(DencTest, PrintsThatAPlaceIsOutsideOfTheKeystream) {
    zxaes_ctt ctx = keyed(kEncrypt, Bytes(16));
    Bytes out(16), iv(16);
    std::uint32_t offset = 16;
    testing::internal::CaptureStdout();
    zxaes_innerapi_cryptCFB128(&ctx, kEncrypt, 16, &offset, &iv[0], &iv[0], &out[0]);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("zxaes_innerapi_cryptCFB128 [0-9]+ n:16 too big\n"));
}

// Packs 48 bits as zxdes_api_done() keeps round keys.
Bytes packed(const std::uint8_t* bits48) {
    std::uint64_t key = 0;
    for (const unsigned box : {0U, 2U, 4U, 6U, 1U, 3U, 5U, 7U}) {
        std::uint8_t six = 0;
        zxdes_api_bit2byte(bits48 + 6 * box, &six, 6);
        key = key << 8U | six >> 2U;
    }
    Bytes bytes(sizeof key);
    std::memcpy(bytes.data(), &key, sizeof key);
    return bytes;
}

// Checks that no piece of a secret is left on the stack.
void expect_wiped(const std::function<void()>& work, const Bytes& secret, std::size_t piece) {
    for (std::size_t at = 0; at < secret.size(); at += piece) {
        ASSERT_FALSE(zx::test::is_left_on_stack(work, &secret[at], piece)) << at;
    }
}

TEST(DencTest, CiphersLeaveNoSecretsOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes key = zx::test::noise(32), coded = zx::test::noise(15 * 16),
                block(coded.begin(), coded.begin() + 8);
    Bytes out = coded, bits(64);
    for (const std::uint32_t mode : {1U, 2U, 3U}) {  // ECB, CBC, feedback
        const auto done = [&](std::uint32_t way, const Bytes& in) {
            zxaes_api_done(way, mode, &in[0], &out[0], size_of(in), &key[0], 32);
        };
        done(kDecrypt, coded);
        const Bytes text = out;
        for (const auto way : {kEncrypt, kDecrypt}) {
            SCOPED_TRACE(testing::Message() << mode << " " << int{way});
            const auto work = [&] { done(way, way == kEncrypt ? text : coded); };
            expect_wiped(work, text, 4);
            for (const auto any_way : {kEncrypt, kDecrypt}) {
                const auto ctx = std::make_unique<zxaes_ctt>(keyed(any_way, key));
                const auto* const keys = reinterpret_cast<const std::uint8_t*>(ctx->buffer);
                expect_wiped(work, Bytes(keys, keys + 15 * 16), 4);
            }
        }
    }
    auto schedule = std::make_unique<std::uint8_t[][ZXDES_SUBKEY_BITS]>(ZXDES_ROUNDS);
    zxdes_api_setsubkey(key.data(), schedule.get());
    zxdes_api_byte2bit(block.data(), bits.data(), 64);
    const Bytes des_key(key.begin(), key.begin() + 8);
    const std::function<void()> works[] = {
        [&] { zxdes_api_done(kEncrypt, &coded[0], &out[0], 40, &des_key[0], 8); },
        [&] { zxdes_api_done(kDecrypt, &out[0], &out[0], 40, &des_key[0], 8); },
        [&] { zxdes_api_setsubkey(&key[0], schedule.get()); },
        [&] { zxdes_api_des(&block[0], &out[0], schedule.get(), kEncrypt); },
    };
    for (const Bytes& secret : {des_key, packed(schedule[0]), block, bits}) {
        SCOPED_TRACE(to_hex(&secret[0], 8));
        for (const auto& work : works) {
            expect_wiped(work, secret, secret.size());
        }
    }
}

TEST(DencTest, DigestsLeaveNothingOfTheMessageOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes blocks = zx::test::noise(128), block(blocks.begin() + 64, blocks.end());
    const auto context = std::make_unique<SHA1Context>();
    SHA1Reset(context.get());
    std::vector<std::uint32_t> schedule(80);
    std::memcpy(&schedule[0], &block[0], block.size());
    for (std::size_t i = 0; i < schedule.size(); ++i) {
        schedule[i] =
            i < 16
                ? be32toh(schedule[i])
                : std::rotl(schedule[i - 3] ^ schedule[i - 8] ^ schedule[i - 14] ^ schedule[i - 16],
                            1);
    }
    const std::string text(1000, '\x9C');
    const auto process = [&] { SHA1Input(context.get(), &blocks[0], 128); };
    const auto is_left = [](const std::function<void()>& work, const void* secret) {
        return zx::test::is_left_on_stack(work, secret, 4);
    };
    EXPECT_FALSE(is_left([&] { std::free(sha1_api_hash(text.c_str())); }, text.data()));
    EXPECT_FALSE(is_left([&] { md5(block); }, &block[0]));
    EXPECT_FALSE(is_left(process, &block[0]));
    constexpr std::uint32_t kConstants[] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
    for (const std::size_t i : {0U, 13U, 70U, 73U, 76U, 79U}) {
        const std::uint32_t sum = schedule[i] + kConstants[i / 20];
        EXPECT_FALSE(is_left(process, &schedule[i]) || is_left(process, &sum)) << i;
    }
}

}  // namespace
