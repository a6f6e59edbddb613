#include "zxcrc.h"

#include "denc/zxcrc/fold.hpp"
#include "internal/cpu.hpp"

namespace {

using zx::crc::kModbus;
using zx::crc::kMpeg2;
using zx::crc::kXmodem;
using zx::crc::of_byte;

consteval std::uint8_t lower_half(std::uint32_t crc) {
    return static_cast<std::uint8_t>(crc);
}

consteval std::uint8_t upper_half(std::uint32_t crc) {
    return static_cast<std::uint8_t>(crc >> 8U);
}

// The portable loops are good enough for short messages.
bool can_fold(std::uint32_t len) {
    return len >= zx::crc::kFoldMin && zx::cpu_features().pclmul;
}

}  // namespace

// A C array that others may name cannot be made by a function: every element is.
#define ZX_EACH_4(make, i) make(i), make((i) + 1), make((i) + 2), make((i) + 3)
#define ZX_EACH_16(make, i)                                                 \
    ZX_EACH_4(make, i), ZX_EACH_4(make, (i) + 4), ZX_EACH_4(make, (i) + 8), \
        ZX_EACH_4(make, (i) + 12)
#define ZX_EACH_64(make, i)                                                      \
    ZX_EACH_16(make, i), ZX_EACH_16(make, (i) + 16), ZX_EACH_16(make, (i) + 32), \
        ZX_EACH_16(make, (i) + 48)
#define ZX_EACH_256(make) \
    ZX_EACH_64(make, 0), ZX_EACH_64(make, 64), ZX_EACH_64(make, 128), ZX_EACH_64(make, 192)
#define ZX_MPEG2(i)      of_byte(kMpeg2, i)
#define ZX_MODBUS_LOW(i) lower_half(of_byte(kModbus, i))
#define ZX_MODBUS_UP(i)  upper_half(of_byte(kModbus, i))

constinit const uint32_t aucCRCTable[256] = {ZX_EACH_256(ZX_MPEG2)};
constinit const uint8_t aucCrcTableH[256] = {ZX_EACH_256(ZX_MODBUS_LOW)};
constinit const uint8_t aucCrcTableL[256] = {ZX_EACH_256(ZX_MODBUS_UP)};

extern "C" uint16_t zxcrc_api_CRC16(const uint8_t* buf, uint32_t len) {
    len = buf != nullptr ? len : 0;
    if (can_fold(len)) {
        return static_cast<uint16_t>(zx::crc::fold_modbus(buf, len));
    }
    // The high register is what is sent first, and the lower half of the number.
    std::uint8_t high = 0xFF;
    std::uint8_t low = 0xFF;
    for (const std::uint8_t* const end = buf + len; buf != end; ++buf) {
        const std::uint8_t index = high ^ *buf;
        high = low ^ aucCrcTableH[index];
        low = aucCrcTableL[index];
    }
    return static_cast<uint16_t>(low << 8U | high);
}

extern "C" uint32_t zxcrc_api_CRC32(const uint8_t* buf, uint32_t len) {
    len = buf != nullptr ? len : 0;
    if (can_fold(len)) {
        return zx::crc::fold_mpeg2(buf, len);
    }
    std::uint32_t crc = kMpeg2.initial;
    for (const std::uint8_t* const end = buf + len; buf != end; ++buf) {
        crc = crc << 8U ^ aucCRCTable[crc >> 24U ^ *buf];
    }
    return crc;
}

extern "C" uint16_t zxcrc_api_CRC(const uint8_t* buf, uint32_t len) {
    len = buf != nullptr ? len : 0;
    if (can_fold(len)) {
        return static_cast<uint16_t>(zx::crc::fold_xmodem(buf, len) >> 16U);
    }
    std::uint32_t crc = kXmodem.initial;
    for (const std::uint8_t* const end = buf + len; buf != end; ++buf) {
        crc ^= std::uint32_t{*buf} << 24U;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc << 1U ^ (crc >> 31U != 0 ? kXmodem.polynomial : 0);
        }
    }
    return static_cast<uint16_t>(crc >> 16U);
}
