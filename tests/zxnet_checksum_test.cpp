#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "bytes.hpp"
#include "log_capture.hpp"
#include "vectors.hpp"
#include "zxnet.h"

namespace {

using testing::ElementsAre;
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
}

TEST(ChecksumTest, LosesOnlyWhatOverflows32Bits) {
    const Bytes ones(131076, 0xFF);
    EXPECT_EQ(zxnet_api_checksum(ones.data(), 131074), 0);
    EXPECT_EQ(zxnet_api_checksum(ones.data(), 131076), 0x0100);
    EXPECT_EQ(checksum_udp(ones.data(), 131076), 0);
    const Bytes zeros(300000);
    EXPECT_EQ(zxnet_api_checksum(zeros.data(), 300000), 0xFFFF);
    EXPECT_EQ(checksum_udp(zeros.data(), 300000), 0xFFFF);
}

TEST(ChecksumTest, PutsThePseudoHeaderInFront) {
    const Bytes header = noise(255);
    const Bytes data = noise(65535);
    for (const unsigned header_size : {0U, 1U, 7U, 8U, 20U, 255U}) {
        for (const unsigned data_size : {0U, 1U, 2U, 63U, 64U, 1480U, 65535U}) {
            const unsigned length = header_size + data_size;
            Bytes whole{192, 168, 0, 1, 10, 2, 3, 4, 0, 17};
            whole.push_back(static_cast<std::uint8_t>(length >> 8U));
            whole.push_back(static_cast<std::uint8_t>(length));
            whole.insert(whole.end(), header.begin(), header.begin() + header_size);
            whole.insert(whole.end(), data.begin(), data.begin() + data_size);
            EXPECT_EQ(zxnet_api_checksum_ptc(header.data(), 0xC0A80001, 0x0A020304, 17,
                                             static_cast<std::uint8_t>(header_size),
                                             data_size == 0 ? nullptr : data.data(),
                                             static_cast<std::uint16_t>(data_size)),
                      textbook_checksum(whole.data(), whole.size()))
                << header_size << " + " << data_size;
        }
    }
}

TEST(ChecksumTest, RefusesMissingBuffers) {
    zx::test::LogCapture log;
    EXPECT_EQ(zxnet_api_checksum(nullptr, 2), 0xFFFF);
    EXPECT_EQ(zxnet_api_checksum_ptc(nullptr, 1, 2, 17, 8, "", 1), 0xFFFF);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]Param error####paddr",
                                        "[ERROR][NETWORK]Param error####pether_pkt"));
}

TEST(ChecksumTest, GivesThePublishedValues) {
    const std::string file = zx::test::vectors("inet/rfc1071.csv");
    if (file.empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::ifstream in(file);
    std::string hex, checksum, source;
    std::getline(in, source);  // names the columns
    int cases = 0;
    for (;
         std::getline(in, hex, ',') && std::getline(in, checksum, ',') && std::getline(in, source);
         ++cases) {
        const Bytes bytes = from_hex(hex);
        EXPECT_EQ(zxnet_api_checksum(bytes.data(), static_cast<std::uint32_t>(bytes.size())),
                  std::stoul(checksum, nullptr, 16))
            << source;
    }
    EXPECT_EQ(cases, 2);
}

}  // namespace
