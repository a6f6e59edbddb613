#include <algorithm>
#include <array>
#include <cstdint>

#include "internal/guard.hpp"
#include "zxdes.h"

namespace {

constexpr std::uint32_t kBlockBits = 64;
constexpr std::uint32_t kHalfBits = 32;
constexpr std::uint32_t kKeyBits = 56;
constexpr std::uint32_t kBoxIn = 6;
constexpr std::uint32_t kBoxOut = 4;

using Block = zx::Wiped<std::array<std::uint8_t, kBlockBits>>;

}  // namespace

extern "C" void zxdes_api_byte2bit(const uint8_t* bytes, uint8_t* bits, uint32_t nbits) {
    if (bytes == nullptr || bits == nullptr) {
        return;
    }
    for (std::uint32_t i = 0; i < nbits; ++i) {
        bits[i] = static_cast<std::uint32_t>(bytes[i / 8]) >> (7 - i % 8) & 1U;
    }
}

extern "C" void zxdes_api_bit2byte(const uint8_t* bits, uint8_t* bytes, uint32_t nbits) {
    if (bits == nullptr || bytes == nullptr) {
        return;
    }
    for (std::uint32_t i = 0; i < nbits; ++i) {
        const std::uint32_t before = i % 8 == 0 ? 0U : bytes[i / 8];
        bytes[i / 8] = static_cast<std::uint8_t>(before | (bits[i] & 1U) << (7 - i % 8));
    }
}

extern "C" void zxdes_api_rotatel(uint8_t* bits, uint32_t nbits, uint32_t count) {
    if (bits == nullptr || nbits == 0) {
        return;
    }
    std::rotate(bits, bits + count % nbits, bits + nbits);
}

extern "C" void zxdes_api_xor(uint8_t* bits, const uint8_t* with, uint32_t nbits) {
    if (bits == nullptr || with == nullptr) {
        return;
    }
    for (std::uint32_t i = 0; i < nbits; ++i) {
        bits[i] ^= with[i];
    }
}

extern "C" void zxdes_api_transform(const uint8_t* in, uint8_t* out, const uint8_t* table,
                                    uint32_t nbits) {
    if (in == nullptr || out == nullptr || table == nullptr || nbits > kBlockBits) {
        return;
    }
    Block chosen;
    for (std::uint32_t i = 0; i < nbits; ++i) {
        (*chosen)[i] = in[table[i] - 1];
    }
    std::copy_n(chosen->begin(), nbits, out);
}

extern "C" void zxdes_api_sfunc(const uint8_t in48[48], uint8_t out32[32]) {
    if (in48 == nullptr || out32 == nullptr) {
        return;
    }
    for (const auto& box : S_Box) {
        std::uint8_t packed = 0;
        zxdes_api_bit2byte(in48, &packed, kBoxIn);
        const std::uint32_t six = packed >> 2U;
        const std::uint32_t row = (six >> 4U & 2U) | (six & 1U);
        const auto value = static_cast<std::uint8_t>(box[row][six >> 1U & 15U] << 4U);
        zxdes_api_byte2bit(&value, out32, kBoxOut);
        in48 += kBoxIn;
        out32 += kBoxOut;
    }
}

extern "C" void zxdes_api_ffunc(uint8_t half32[32], const uint8_t key48[48]) {
    if (half32 == nullptr || key48 == nullptr) {
        return;
    }
    Block bits;
    std::uint8_t* const at = bits->data();
    zxdes_api_transform(half32, at, E_Table, ZXDES_SUBKEY_BITS);
    zxdes_api_xor(at, key48, ZXDES_SUBKEY_BITS);
    zxdes_api_sfunc(at, at);
    zxdes_api_transform(at, half32, P_Table, kHalfBits);
}

extern "C" void zxdes_api_setsubkey(const uint8_t key8[8], uint8_t schedule[16][48]) {
    if (key8 == nullptr || schedule == nullptr) {
        return;
    }
    Block bits;
    std::uint8_t* const at = bits->data();
    zxdes_api_byte2bit(key8, at, kBlockBits);
    zxdes_api_transform(at, at, PC1_Table, kKeyBits);
    for (std::uint32_t round = 0; round < ZXDES_ROUNDS; ++round) {
        zxdes_api_rotatel(at, kKeyBits / 2, LOOP_Table[round]);
        zxdes_api_rotatel(at + kKeyBits / 2, kKeyBits / 2, LOOP_Table[round]);
        zxdes_api_transform(at, schedule[round], PC2_Table, ZXDES_SUBKEY_BITS);
    }
}

extern "C" void zxdes_api_des(const uint8_t in8[8], uint8_t out8[8], const uint8_t schedule[16][48],
                              uint8_t direction) {
    if (in8 == nullptr || out8 == nullptr || schedule == nullptr) {
        return;
    }
    Block bits;
    Block half;
    std::uint8_t* const left = bits->data();
    std::uint8_t* const right = left + kHalfBits;
    zxdes_api_byte2bit(in8, left, kBlockBits);
    zxdes_api_transform(left, left, IP_Table, kBlockBits);
    for (std::uint32_t round = 0; round < ZXDES_ROUNDS; ++round) {
        std::copy_n(right, kHalfBits, half->begin());
        zxdes_api_ffunc(right, schedule[direction == 0 ? round : ZXDES_ROUNDS - 1 - round]);
        zxdes_api_xor(right, left, kHalfBits);
        std::copy_n(half->begin(), kHalfBits, left);
    }
    std::swap_ranges(left, right, right);
    zxdes_api_transform(left, left, IPR_Table, kBlockBits);
    zxdes_api_bit2byte(left, out8, kBlockBits);
}
