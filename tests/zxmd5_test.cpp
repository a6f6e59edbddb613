#include "zxmd5.h"

#include <gmock/gmock.h>

#include "digests.hpp"
#include "log_capture.hpp"
#include "stack.hpp"
#include "zxmem.h"

namespace {

using testing::ElementsAre;
using zx::test::Bytes;

std::vector<std::uint32_t> g_sizes;  // of the buffers that live

}  // namespace

// In place of the library's allocator.
extern "C" void* zxmem_api_malloc(uint32_t size, const char* name, const char* file, uint32_t) {
    EXPECT_STREQ(name, "message");
    EXPECT_STREQ(file, "src/denc/zxmd5");
    EXPECT_EQ(size % 64, 0);
    g_sizes.push_back(size);
    return std::malloc(size);
}

extern "C" void zxmem_api_free(void** pbuf) {
    const auto* const buffer = static_cast<std::uint8_t*>(*pbuf);
    EXPECT_THAT(Bytes(buffer, buffer + g_sizes.back()), testing::Each(0)) << "not wiped";
    g_sizes.pop_back();
    std::free(*pbuf);
}

namespace {

std::string md5(const std::uint8_t* data, std::size_t size) {
    std::vector<char> out(ZXMD5_TEXT_SIZE, 'x');
    EXPECT_EQ(zxmd5_api_outStr(data, size, out.data()), 16);
    EXPECT_TRUE(g_sizes.empty());
    return out.data();
}

TEST(Md5Test, AgreesWithOpenSslAtEveryLengthAndAlignment) {
    for (std::size_t size = 0; size <= 130; ++size) {
        const Bytes message = zx::test::noise(size + 1);
        for (const std::uint8_t* const at : {&message[0], &message[1]}) {
            ASSERT_EQ(md5(at, size), zx::test::openssl_digest(EVP_md5(), at, size));
        }
    }
    EXPECT_EQ(md5(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5Test, GivesThePublishedDigests) {
    if (zx::test::vectors("").empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    EXPECT_EQ(zx::test::check_published("md5/rfc-1321.txt", md5), 7);
}

TEST(Md5Test, PadsAndRotates) {
    EXPECT_EQ(zxmd5_innerapi_getPadLen(ZXMD5_MAX_INPUT), 0xFFFFFFC0);
    EXPECT_EQ(zxmd5_innerapi_getPadLen(UINT64_MAX - 72), UINT64_MAX - 63);
    EXPECT_EQ(zxmd5_innerapi_leftrotate(0x80000001, 32), 0x80000001);
    EXPECT_EQ(zxmd5_innerapi_leftrotate(0x80000001, 33), 3);
}

TEST(Md5Test, RefusesWithoutReading) {
    zx::test::LogCapture log;
    const Bytes one(1);
    std::uint32_t digest[4] = {1, 2, 3, 4};
    EXPECT_EQ(md5(one.data(), std::uint64_t{ZXMD5_MAX_INPUT} + 1), std::string(32, '0'));
    EXPECT_EQ(zxmd5_api_outNum(one.data(), 0x1FFFFFFFFFFFFFFF, digest), 0);
    EXPECT_EQ(zxmd5_api_outNum(one.data(), 0x2000000000000000, digest), 0);
    EXPECT_EQ(zxmd5_api_outNum(nullptr, 1, digest), 0);
    EXPECT_EQ(zxmd5_api_outNum(one.data(), 1, nullptr), 0);
    EXPECT_EQ(zxmd5_api_outStr(one.data(), 1, nullptr), 0);
    EXPECT_THAT(digest, ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(
        log.take(),
        ElementsAre("[ERROR][ZXMD5]Param error####len", "[ERROR][ZXMD5]Param error####len",
                    "[ERROR][ZXMD5]期望输入信息的长度小于等于为 2 的 64 比特，期望没有满足\n",
                    "[ERROR][ZXMD5]Param error####data", "[ERROR][ZXMD5]Param error####digest",
                    "[ERROR][ZXMD5]Param error####out"));
}

TEST(Md5Test, LeavesNothingOfTheMessageOnTheStack) {
    if (!zx::test::kStackIsKeptClean) {
        GTEST_SKIP() << "this build keeps temporaries on the stack";
    }
    const Bytes message(1000, 0x9C);
    std::uint32_t digest[4];
    EXPECT_FALSE(zx::test::is_left_on_stack(
        [&] { zxmd5_api_outNum(message.data(), message.size(), digest); }, message.data(), 4));
}

}  // namespace
