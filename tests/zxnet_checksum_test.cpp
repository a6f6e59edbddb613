#include <gtest/gtest.h>

#include "bytes.hpp"
#include "zxnet.h"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;
using zx::test::noise;
using zx::test::textbook_checksum;

std::uint16_t checksum_udp(const std::uint8_t* at, std::uint32_t size) {
    return __builtin_bswap16(zxnet_api_checksumUdp(
        static_cast<const std::uint16_t*>(static_cast<const void*>(at)), size));
}

TEST(ChecksumTest, AgreesWithTheTextbookAtEveryLengthAndAlignment) {
    for (std::uint32_t size = 0; size <= 2100; ++size) {
        for (std::uint32_t shift = 0; shift < 8; ++shift) {
            const Bytes bytes = noise(shift + size);
            const std::uint8_t* const at = bytes.data() + shift;
            const std::uint16_t expected = textbook_checksum(at, size);
            ASSERT_EQ(zxnet_api_checksum(at, size), expected) << size << " behind " << shift;
            if (size % 2 == 0) {
                ASSERT_EQ(checksum_udp(at, size), expected) << size << " behind " << shift;
            }
        }
    }
    // RFC 1071, section 3.
    EXPECT_EQ(zxnet_api_checksum(from_hex("0001 f203 f4f5 f6f7").data(), 8), 0xFFFF - 0xDDF2);
}

TEST(ChecksumTest, LosesOnlyWhatOverflows32Bits) {
    const Bytes ones(131076, 0xFF), zeros(300000);
    EXPECT_EQ(zxnet_api_checksum(ones.data(), 131074), 0);
    EXPECT_EQ(zxnet_api_checksum(ones.data(), 131076), 0x0100);
    EXPECT_EQ(checksum_udp(ones.data(), 131076), 0);
    EXPECT_EQ(zxnet_api_checksum(zeros.data(), 300000), 0xFFFF);
    EXPECT_EQ(checksum_udp(zeros.data(), 300000), 0xFFFF);
}

}  // namespace
