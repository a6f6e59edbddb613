// MAC addresses.
#include "zxnet.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/dotted.hpp"
#include "shared/hex.hpp"
#include "zxnet/messages.hpp"

namespace {

constexpr std::uint8_t kNoDigit = 16;
constexpr std::uint8_t kGroupBit = 1;

constexpr std::array<std::uint8_t, 256> kDigitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (std::uint8_t value = 0; value < 16; ++value) {
        const auto digit = static_cast<unsigned char>(zx::kLowerDigits[value]);
        values[digit] = value;
        values[value < 10 ? digit : digit - 'a' + 'A'] = value;
    }
    return values;
}();

std::uint8_t digit_value(char c) {
    return kDigitValues[static_cast<unsigned char>(c)];
}

// Takes the next byte off a text as strtoul() would. strtoul() is slow, so it reads only what is
// not one or two plain digits.
std::uint8_t take_byte(const char*& at) {
    const std::uint8_t high = digit_value(at[0]);
    const std::uint8_t low = high != kNoDigit ? digit_value(at[1]) : kNoDigit;
    if (low != kNoDigit && digit_value(at[2]) == kNoDigit) [[likely]] {
        at += 2;
        return static_cast<std::uint8_t>(high << 4U | low);
    }
    if (high != kNoDigit && low == kNoDigit && at[1] != 'x' && at[1] != 'X') {
        at += 1;
        return high;
    }
    char* end = nullptr;
    const unsigned long value = std::strtoul(at, &end, 16);
    at = end;
    return static_cast<std::uint8_t>(value);
}

void parse_mac(const char* at, std::uint8_t* out) {
    std::uint8_t* const end = out + ZXNET_MAC_SIZE;
    while (out < end) {
        *out++ = take_byte(at);
        if (*at++ == '\0') {
            break;
        }
    }
    std::fill(out, end, std::uint8_t{0});
}

}  // namespace

extern "C" int32_t zxnet_api_macStr2Byte(const char* text, uint8_t* out6) {
    if (!ZX_ARE_GIVEN({text, "pmacstr"}, {out6, "poutbuf"})) {
        return -1;
    }
    parse_mac(text, out6);
    return 0;
}

extern "C" int32_t zxnet_api_macByte2str(const uint8_t* bytes, uint32_t len, char* out) {
    if (!ZX_ARE_GIVEN({bytes, "bytes"}, {out, "out"})) {
        return 0;
    }
    char* at = out + std::strlen(out);
    for (uint32_t i = 0; i < len; ++i) {
        if (i > 0) {
            *at++ = ':';
        }
        if (bytes[i] > 0xF) {
            *at++ = zx::kLowerDigits[bytes[i] >> 4U];
        }
        *at++ = zx::kLowerDigits[bytes[i] & 0xFU];
    }
    *at = '\0';
    return static_cast<int32_t>(len);
}

extern "C" int32_t zxnet_api_isVaildMac(const char* text) {
    if (!ZX_ARE_GIVEN({text, "pmacstr"})) {
        return -1;
    }
    std::uint8_t mac[ZXNET_MAC_SIZE];
    parse_mac(text, mac);
    return (mac[0] & kGroupBit) == 0 ? 1 : 0;
}

extern "C" int32_t zxnet_api_getMulticastDestMac(char* out, const char* group) {
    if (!ZX_ARE_GIVEN({group, "group"}, {out, "out"})) {
        return 0;
    }
    const std::uint32_t ip = ntohl(inet_addr(group));
    std::memset(out, 0, std::strlen(out));
    // Deliberate: the whole second octet, although Ethernet maps only its lower seven bits.
    return std::snprintf(out, ZXNET_MAC_TEXT_SIZE, "01:00:5e:%02x:%02x:%02x", zx::octet(ip, 1),
                         zx::octet(ip, 2), zx::octet(ip, 3));
}
