// Digests and checks of messages: published ones, refusals, what is left of a message. The fuzz
// target compares them with their plain algorithms.
#include <gmock/gmock.h>

#include <bit>
#include <memory>

#include "bytes.hpp"
#include "log_capture.hpp"
#include "sha1.h"
#include "stack.hpp"
#include "vectors.hpp"
#include "zxcrc.h"
#include "zxmd5.h"
#include "zxmem.h"

namespace {

using testing::Each;
using zx::test::Bytes;
using zx::test::noise;

std::vector<std::uint32_t> g_sizes;  // of the buffers that live

}  // namespace

// In place of the library's allocator.
extern "C" void* zxmem_api_malloc(uint32_t size, const char* name, const char* file, uint32_t) {
    EXPECT_STREQ(name, "message");
    EXPECT_STREQ(file, "src/denc/zxmd5");
    g_sizes.push_back(size);
    return std::malloc(size);
}

extern "C" void zxmem_api_free(void** pbuf) {
    const auto* const buffer = static_cast<std::uint8_t*>(*pbuf);
    EXPECT_THAT(Bytes(buffer, buffer + g_sizes.back()), Each(0)) << "not wiped";
    g_sizes.pop_back();
    std::free(*pbuf);
}

namespace {

std::string hex(std::uint32_t number) {
    number = __builtin_bswap32(number);
    return zx::test::to_hex(&number, sizeof number);
}

std::string md5(const std::uint8_t* at, std::size_t size) {
    std::vector<char> out(ZXMD5_TEXT_SIZE, 'x');
    EXPECT_EQ(zxmd5_api_outStr(at, size, out.data()), 16);
    EXPECT_TRUE(g_sizes.empty());
    return out.data();
}

SHA1Context fresh() {
    SHA1Context context;
    std::memset(&context, 0xA5, sizeof context);
    SHA1Reset(&context);
    return context;
}

std::string hash_of(const SHA1Context& context) {
    std::string text;
    for (const std::uint32_t word : context.Intermediate_Hash) {
        text += hex(word);
    }
    return text;
}

// In two pieces.
std::string sha1(const std::uint8_t* at, std::size_t size) {
    SHA1Context context = fresh();
    const auto split = static_cast<std::uint32_t>(size / 3);
    SHA1Input(&context, at, split);
    SHA1Input(&context, at + split, static_cast<std::uint32_t>(size) - split);
    EXPECT_EQ(SHA1Result(&context), 1);
    EXPECT_THAT(context.Message_Block, Each(0));
    return hash_of(context);
}

template <auto kCrc>
std::string crc(const std::uint8_t* at, std::size_t size) {
    return hex(kCrc(at, static_cast<std::uint32_t>(size)));
}

struct Kind {
    const char* name;
    std::string (*ours)(const std::uint8_t* at, std::size_t size);
    const char* published;  // of "123456789"
};
constexpr Kind kKinds[] = {
    {"MD5", md5, "25f9e794323b453885f5181f1b624d0b"},
    {"SHA-1", sha1, "f7c3bc1d808e04732adf679965ccc34ca7ae3441"},
    {"CRC-16/MODBUS", crc<zxcrc_api_CRC16>, "00004b37"},
    {"CRC-32/MPEG-2", crc<zxcrc_api_CRC32>, "0376e6e7"},
    {"CRC-16/XMODEM", crc<zxcrc_api_CRC>, "000031c3"},
};

TEST(DigestTest, MeetsThePublishedCheckValues) {
    for (const Kind& kind : kKinds) {
        EXPECT_EQ(kind.ours(reinterpret_cast<const std::uint8_t*>("123456789"), 9), kind.published);
    }
}

TEST(DigestTest, MeetsThePublishedVectors) {
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::size_t count = 0;
    const std::pair<const char*, decltype(&md5)> files[] = {
        {"md5/rfc-1321.txt", md5},
        {"sha1/SHA1ShortMsg.rsp", sha1},
        {"sha1/SHA1LongMsg.rsp", sha1},
    };
    for (const auto& [file, digest] : files) {
        for (const auto& record : zx::test::read_records(file)) {
            Bytes message = zx::test::from_hex(record.at("Msg"));
            message.resize(std::stoul(record.at("Len")) / 8);  // the empty one is written as "00"
            EXPECT_EQ(digest(message.data(), message.size()), record.at("MD"));
            ++count;
        }
    }
    EXPECT_EQ(count, 7U + 65U + 64U);

    const auto monte_carlo = zx::test::read_records("sha1/SHA1Monte.rsp");
    std::string seed = monte_carlo.at(0).at("Seed");
    for (std::size_t i = 1; i <= 100; ++i) {
        Bytes last = zx::test::from_hex(seed + seed + seed);
        for (int round = 0; round < 1000; ++round) {
            const Bytes next = zx::test::from_hex(seed = sha1(last.data(), last.size()));
            last.erase(last.begin(), last.begin() + 20);
            last.insert(last.end(), next.begin(), next.end());
        }
        ASSERT_EQ(seed, monte_carlo.at(i).at("MD"));
    }

    std::ifstream in(zx::test::vectors("crc/crc.csv"));
    std::string name, message, expected, source;
    for (count = 0; std::getline(in, name, ',') && std::getline(in, message, ',') &&
                    std::getline(in, expected, ',') && std::getline(in, source);) {
        const Bytes bytes = zx::test::from_hex(message);
        for (const Kind& kind : kKinds) {
            if (kind.name == name) {
                EXPECT_EQ(std::stoul(kind.ours(bytes.data(), bytes.size()), nullptr, 16),
                          std::stoul(expected, nullptr, 16))
                    << source;
                ++count;
            }
        }
    }
    EXPECT_EQ(count, 12U);
}

TEST(DigestTest, PadsAndRotates) {
    EXPECT_EQ(zxmd5_innerapi_getPadLen(ZXMD5_MAX_INPUT), 0xFFFFFFC0);
    EXPECT_EQ(zxmd5_innerapi_getPadLen(UINT64_MAX - 72), UINT64_MAX - 63);
    EXPECT_EQ(zxmd5_innerapi_leftrotate(0x80000001, 32), 0x80000001);
    EXPECT_EQ(zxmd5_innerapi_leftrotate(0x80000001, 33), 3);
}

TEST(DigestTest, WritesTheDigestOfATextInUpperCase) {
    const std::unique_ptr<char, decltype(&std::free)> text(sha1_api_hash("abc"), std::free);
    EXPECT_STREQ(text.get(), "A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_THAT(std::string(text.get() + 40, 88), Each('\0'));
}

TEST(DigestTest, RefusesWhatWouldLeadOutOfTheContext) {
    const Bytes message = noise(200);
    for (const int index : {-1, 64, INT32_MAX, INT32_MIN}) {
        for (const std::uint32_t size : {0U, 200U}) {
            SHA1Context context = fresh();
            context.Message_Block_Index = index;
            SHA1Input(&context, message.data(), size);
            EXPECT_EQ(context.Corrupted, size == 0 ? 0 : 1);
            EXPECT_EQ(SHA1Result(&context), 0);
        }
    }
}

TEST(DigestTest, LeavesNothingOfTheMessageOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes blocks = noise(128), block(blocks.begin() + 64, blocks.end());
    const auto context = std::make_unique<SHA1Context>(fresh());
    std::vector<std::uint32_t> schedule(80);
    std::memcpy(&schedule[0], &block[0], block.size());
    for (std::size_t i = 0; i < schedule.size(); ++i) {
        schedule[i] =
            i < 16
                ? __builtin_bswap32(schedule[i])
                : std::rotl(schedule[i - 3] ^ schedule[i - 8] ^ schedule[i - 14] ^ schedule[i - 16],
                            1);
    }
    const std::string text(1000, '\x9C');
    const auto process = [&] { SHA1Input(context.get(), &blocks[0], 128); };
    const auto is_left = [](const std::function<void()>& work, const void* secret) {
        return zx::test::is_left_on_stack(work, secret, 4);
    };
    EXPECT_FALSE(is_left([&] { std::free(sha1_api_hash(text.c_str())); }, text.data()));
    EXPECT_FALSE(is_left([&] { md5(&block[0], block.size()); }, &block[0]));
    EXPECT_FALSE(is_left(process, &block[0]));
    constexpr std::uint32_t kConstants[] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
    for (const std::size_t i : {0U, 13U, 70U, 73U, 76U, 79U}) {
        const std::uint32_t sum = schedule[i] + kConstants[i / 20];
        EXPECT_FALSE(is_left(process, &schedule[i])) << i;
        EXPECT_FALSE(is_left(process, &sum)) << i;
    }
}

}  // namespace
