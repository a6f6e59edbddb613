#include "sha1.h"

#include <gmock/gmock.h>

#include <bit>
#include <memory>

#include "digests.hpp"
#include "log_capture.hpp"
#include "stack.hpp"

namespace {

using testing::Each;
using testing::ElementsAre;
using zx::test::Bytes;
using zx::test::from_hex;
using zx::test::noise;

SHA1Context fresh() {
    SHA1Context context;
    std::memset(&context, 0xA5, sizeof context);
    SHA1Reset(&context);
    return context;
}

std::string hash_of(const SHA1Context& context) {
    std::string text;
    for (std::uint32_t word : context.Intermediate_Hash) {
        word = __builtin_bswap32(word);
        text += zx::test::to_hex(&word, sizeof word);
    }
    return text;
}

std::string sha1(const std::uint8_t* data, std::size_t size, std::size_t split) {
    SHA1Context context = fresh();
    SHA1Input(&context, data, static_cast<std::uint32_t>(split));
    SHA1Input(&context, data + split, static_cast<std::uint32_t>(size - split));
    EXPECT_EQ(SHA1Result(&context), 1);
    EXPECT_THAT(context.Message_Block, Each(0));
    return hash_of(context);
}

TEST(Sha1Test, AgreesWithOpenSslWhereverAMessageIsSplit) {
    for (std::size_t size = 0; size <= 130; ++size) {
        const Bytes message = noise(size);
        const std::string expected = zx::test::openssl_digest(EVP_sha1(), message.data(), size);
        for (std::size_t split = 0; split <= size; ++split) {
            ASSERT_EQ(sha1(message.data(), size, split), expected) << size << " at " << split;
        }
    }
}

TEST(Sha1Test, GivesThePublishedDigests) {
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    const auto digest = [](auto* data, std::size_t size) { return sha1(data, size, size / 2); };
    EXPECT_EQ(zx::test::check_published("sha1/SHA1ShortMsg.rsp", digest), 65);
    EXPECT_EQ(zx::test::check_published("sha1/SHA1LongMsg.rsp", digest), 64);
    const auto monte_carlo = zx::test::read_records("sha1/SHA1Monte.rsp");
    std::string seed = monte_carlo.at(0).at("Seed");
    for (std::size_t i = 1; i <= 100; ++i) {
        Bytes last = from_hex(std::string(seed).append(seed).append(seed));
        for (int round = 0; round < 1000; ++round) {
            const Bytes next = from_hex(seed = sha1(last.data(), last.size(), 0));
            last.erase(last.begin(), last.begin() + 20);
            last.insert(last.end(), next.begin(), next.end());
        }
        ASSERT_EQ(seed, monte_carlo.at(i).at("MD"));
    }
}

TEST(Sha1Test, WritesTheDigestOfATextInUpperCase) {
    const std::unique_ptr<char, decltype(&std::free)> text(sha1_api_hash("abc"), std::free);
    EXPECT_STREQ(text.get(), "A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_THAT(std::string(text.get() + 40, 88), Each('\0'));
}

TEST(Sha1Test, CorruptsAtTheByteThatMakesTheLengthOverflow) {
    const Bytes message = noise(200);
    for (const std::uint32_t room : {1U, 65U, 200U, 201U}) {
        for (const std::uint32_t waiting : {0U, 63U}) {
            SHA1Context whole = fresh();
            SHA1Input(&whole, message.data(), waiting);
            whole.Length_High = 0xFFFFFFFF;
            whole.Length_Low = 0U - 8 * room;
            SHA1Context bytewise = whole;
            SHA1Input(&whole, message.data(), 200);
            for (const std::uint8_t& byte : message) {
                SHA1Input(&bytewise, &byte, 1);
            }
            EXPECT_EQ(hash_of(whole), hash_of(bytewise)) << room << " behind " << waiting;
            EXPECT_EQ(whole.Message_Block_Index, bytewise.Message_Block_Index);
            EXPECT_EQ(whole.Length_High, room > 200 ? 0xFFFFFFFF : 0);
            EXPECT_EQ(SHA1Result(&whole), room > 200 ? 1 : 0);
            EXPECT_EQ(SHA1Result(&bytewise), room > 200 ? 1 : 0);
        }
    }
}

TEST(Sha1Test, RefusesWhatIsTooLateOrWouldLeadOutOfTheContext) {
    zx::test::LogCapture log;
    const Bytes message = noise(200);
    const auto context = std::make_unique<SHA1Context>(fresh());
    const std::string none = zx::test::openssl_digest(EVP_sha1(), "", 0);
    for (int i = 0; i < 2; ++i) {  // the result may be asked for again, no more be added
        EXPECT_EQ(SHA1Result(context.get()), 1);
        EXPECT_EQ(hash_of(*context), none);
    }
    SHA1Input(context.get(), message.data(), 1);
    EXPECT_EQ(SHA1Result(context.get()), 0);
    for (const int index : {-1, 64, INT32_MAX, INT32_MIN}) {
        for (const std::uint32_t size : {0U, 200U}) {
            *context = fresh();
            context->Message_Block_Index = index;
            SHA1Input(context.get(), message.data(), size);
            EXPECT_EQ(context->Corrupted, size == 0 ? 0 : 1);
            EXPECT_EQ(SHA1Result(context.get()), 0);
        }
    }
    SHA1Reset(nullptr);
    SHA1Input(nullptr, message.data(), 1);
    SHA1PadMessage(nullptr);
    SHA1ProcessMessageBlock(nullptr);
    EXPECT_EQ(SHA1Result(nullptr), 0);
    EXPECT_THAT(log.take(),
                testing::AllOf(testing::SizeIs(5), Each("[ERROR][SHA1]Param error####ctx")));
    SHA1Input(context.get(), nullptr, 1);
    EXPECT_EQ(sha1_api_hash(nullptr), nullptr);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][SHA1]Param error####bytes",
                                        "[ERROR][SHA1]Param error####text"));
}

TEST(Sha1Test, LeavesNothingOfTheScheduleOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes block = noise(64);
    const auto context = std::make_unique<SHA1Context>(fresh());
    std::copy(block.begin(), block.end(), context->Message_Block);
    std::vector<std::uint32_t> words(80);
    std::copy(block.begin(), block.end(), reinterpret_cast<std::uint8_t*>(words.data()));
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = i < 16
                       ? __builtin_bswap32(words[i])
                       : std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
    }
    const std::string text(1000, '\x9C');
    const auto hash = [&] { std::free(sha1_api_hash(text.c_str())); };
    EXPECT_FALSE(zx::test::is_left_on_stack(hash, text.data(), 4));
    const auto process = [&] { SHA1ProcessMessageBlock(context.get()); };
    EXPECT_FALSE(zx::test::is_left_on_stack(process, block.data(), 4));
    for (const std::size_t i : {0U, 13U, 70U, 73U, 76U, 79U}) {
        EXPECT_FALSE(zx::test::is_left_on_stack(process, &words[i], 4)) << i;
    }
}

}  // namespace
