#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "bytes.hpp"
#include "zxnet.h"

namespace {

using zx::test::Bytes;

std::uint16_t checksum_udp(const std::uint8_t* at, std::uint32_t size) {
    return ntohs(zxnet_api_checksumUdp(
        static_cast<const std::uint16_t*>(static_cast<const void*>(at)), size));
}

TEST(ChecksumTest, AgreesWithTheTextbookAtEveryLengthAndAlignment) {
    for (std::uint32_t size = 0; size <= 2100; ++size) {
        for (std::uint32_t shift = 0; shift < 8; ++shift) {
            const Bytes bytes = zx::test::noise(shift + size + 1);
            const std::uint8_t* const at = bytes.data() + shift;
            const std::uint16_t expected = zx::test::textbook_checksum(at, size);
            ASSERT_EQ(zxnet_api_checksum(at, size), expected) << size << " behind " << shift;
            if (size % 2 == 0) {
                ASSERT_EQ(checksum_udp(at, size), expected) << size << " behind " << shift;
            }
        }
    }
}

TEST(ChecksumTest, LosesOnlyWhatOverflows32Bits) {
    const Bytes ones(131076, 0xFF);
    EXPECT_EQ(zxnet_api_checksum(ones.data(), 131074), 0);
    EXPECT_EQ(zxnet_api_checksum(ones.data(), 131076), 0x0100);
    EXPECT_EQ(checksum_udp(ones.data(), 131076), 0);
}

}  // namespace
