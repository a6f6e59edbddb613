#include "zxcrc.h"

#include "denc/zxcrc/fold.hpp"
#include "internal/cpu.hpp"

namespace {

using zx::crc::Crc;
using zx::crc::kModbus;
using zx::crc::kMpeg2;
using zx::crc::kXmodem;
using zx::crc::of_byte;
using zx::crc::Variant;

consteval std::uint8_t lower_half(std::uint32_t crc) {
    return static_cast<std::uint8_t>(crc);
}

consteval std::uint8_t upper_half(std::uint32_t crc) {
    return static_cast<std::uint8_t>(crc >> 8U);
}

}  // namespace

// No function can make a C array, and the interface exports these as C arrays. So the macros write
// out every element.
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

namespace {

std::uint32_t modbus_portable(const std::uint8_t* at, std::size_t size) {
    // The high register is sent first, and is the lower half of the number.
    std::uint8_t high = 0xFF;
    std::uint8_t low = 0xFF;
    for (const std::uint8_t* const end = at + size; at != end; ++at) {
        const std::uint8_t index = high ^ *at;
        high = low ^ aucCrcTableH[index];
        low = aucCrcTableL[index];
    }
    return std::uint32_t{low} << 8U | high;
}

std::uint32_t mpeg2_portable(const std::uint8_t* at, std::size_t size) {
    std::uint32_t crc = kMpeg2.initial;
    for (const std::uint8_t* const end = at + size; at != end; ++at) {
        crc = crc << 8U ^ aucCRCTable[crc >> 24U ^ *at];
    }
    return crc;
}

std::uint32_t xmodem_portable(const std::uint8_t* at, std::size_t size) {
    std::uint32_t crc = kXmodem.initial;
    for (const std::uint8_t* const end = at + size; at != end; ++at) {
        crc ^= std::uint32_t{*at} << 24U;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc << 1U ^ (crc >> 31U != 0 ? kXmodem.polynomial : 0);
        }
    }
    return crc;
}

template <const Variant& kVariant, Crc* kPlain>
constexpr zx::Choice<Crc*> kCrcs[] = {
#ifdef __x86_64__
    {zx::kVpclmul512, zx::crc::kWidestMin, zx::crc::fold_widest<kVariant>},
    {zx::kVpclmul, zx::crc::kWideMin, zx::crc::fold_wide<kVariant>},
#endif
#ifdef ZX_TARGET_NARROW
    {zx::kClmul, zx::crc::kFoldMin, zx::crc::fold_narrow<kVariant>},
#endif
    {zx::kPortable, 0, kPlain},
};

template <const Variant& kVariant, Crc* kPlain>
std::uint32_t crc_of(const std::uint8_t* buf, std::uint32_t len) {
    const std::size_t size = buf != nullptr ? len : 0;
    return zx::pick(kCrcs<kVariant, kPlain>, size)(buf, size);
}

}  // namespace

extern "C" uint16_t zxcrc_api_CRC16(const uint8_t* buf, uint32_t len) {
    return static_cast<uint16_t>(crc_of<kModbus, modbus_portable>(buf, len));
}

extern "C" uint32_t zxcrc_api_CRC32(const uint8_t* buf, uint32_t len) {
    return crc_of<kMpeg2, mpeg2_portable>(buf, len);
}

extern "C" uint16_t zxcrc_api_CRC(const uint8_t* buf, uint32_t len) {
    return static_cast<uint16_t>(crc_of<kXmodem, xmodem_portable>(buf, len) >> 16U);
}
