#include "zxcrc.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <string>

#include "bytes.hpp"
#include "vectors.hpp"

namespace {

using zx::test::Bytes;
using zx::test::from_hex;

struct Variant {
    const char* name;
    std::uint32_t (*crc)(const std::uint8_t* buf, std::uint32_t len);
    unsigned width;
    std::uint32_t polynomial;
    std::uint32_t initial;
    bool is_reflected;
};

template <auto kFunction>
std::uint32_t call(const std::uint8_t* buf, std::uint32_t len) {
    return kFunction(buf, len);
}

const Variant kVariants[] = {
    {"CRC-16/MODBUS", call<zxcrc_api_CRC16>, 16, 0x8005, 0xFFFF, true},
    {"CRC-32/MPEG-2", call<zxcrc_api_CRC32>, 32, 0x04C11DB7, 0xFFFFFFFF, false},
    {"CRC-16/XMODEM", call<zxcrc_api_CRC>, 16, 0x1021, 0, false},
};

// The definition, a bit at a time.
std::uint32_t divide(const Variant& variant, const std::uint8_t* at, std::size_t size) {
    std::uint32_t crc = variant.initial;
    for (std::size_t i = 0; i < 8 * size; ++i) {
        const unsigned bit = variant.is_reflected ? i % 8 : 7 - i % 8;
        const std::uint32_t top =
            crc >> (variant.width - 1) ^ (std::uint32_t{at[i / 8]} >> bit & 1U);
        crc = crc << 1U ^ ((top & 1U) != 0 ? variant.polynomial : 0);
        crc &= variant.width == 16 ? 0xFFFFU : 0xFFFFFFFFU;
    }
    std::uint32_t reversed = 0;
    for (unsigned i = 0; i < variant.width; ++i) {
        reversed |= (crc >> i & 1U) << (variant.width - 1 - i);
    }
    return variant.is_reflected ? reversed : crc;
}

// Storage that ends with its last byte, so that a touch beyond is seen.
Bytes noise(std::size_t size) {
    static std::minstd_rand engine;
    Bytes bytes(size);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(engine() >> 8U);
    }
    return bytes;
}

TEST(CrcTest, AgreesWithItsDefinitionAtEveryLengthAndAlignment) {
    for (const Variant& variant : kVariants) {
        for (std::size_t size = 0; size <= 600; ++size) {
            const std::size_t shift = size % 17;
            const Bytes bytes = noise(shift + size);
            const std::uint8_t* const at = bytes.data() + shift;
            ASSERT_EQ(variant.crc(at, static_cast<std::uint32_t>(size)), divide(variant, at, size))
                << variant.name << " of " << size << " bytes";
        }
        const Bytes large = noise(100'003);
        EXPECT_EQ(variant.crc(large.data(), 100'003), divide(variant, large.data(), large.size()));
        EXPECT_EQ(variant.crc(nullptr, 100), divide(variant, nullptr, 0)) << variant.name;
    }
}

TEST(CrcTest, OffersTheTablesOfTheStandards) {
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = static_cast<std::uint8_t>(i);
        Variant modbus = kVariants[0];
        Variant mpeg2 = kVariants[1];
        modbus.initial = mpeg2.initial = 0;
        EXPECT_EQ(aucCrcTableL[i] << 8U | aucCrcTableH[i], divide(modbus, &byte, 1));
        EXPECT_EQ(aucCRCTable[i], divide(mpeg2, &byte, 1));
    }
    EXPECT_EQ(aucCrcTableH[1], 0xC1) << "the half that is sent first";
}

TEST(CrcTest, AgreesWithThePublishedVectors) {
    const std::string file = zx::test::vectors("crc/crc.csv");
    if (file.empty()) {
        GTEST_SKIP() << "ZX_VECTORS is not set";
    }
    std::ifstream in(file);
    std::string name, data, crc, source;
    std::getline(in, source);  // names the columns
    int cases = 0;
    while (std::getline(in, name, ',') && std::getline(in, data, ',') &&
           std::getline(in, crc, ',') && std::getline(in, source)) {
        for (const Variant& variant : kVariants) {
            if (variant.name == name) {
                const Bytes bytes = from_hex(data);
                EXPECT_EQ(variant.crc(bytes.data(), static_cast<std::uint32_t>(bytes.size())),
                          std::stoul(crc, nullptr, 16))
                    << source;
                ++cases;
            }
        }
    }
    EXPECT_EQ(cases, 12);
}

}  // namespace
