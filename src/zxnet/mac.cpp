// MAC addresses, and bytes as texts.
#include "zxnet.h"

#include <arpa/inet.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/log.hpp"
#include "zxnet/dotted.hpp"

namespace {

constexpr char kTag[] = "NETWORK";
constexpr char kDigits[] = "0123456789abcdef";
constexpr std::uint8_t kNoDigit = 16;
constexpr std::uint8_t kGroupBit = 1;

constexpr std::array<std::uint8_t, 256> kDigitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (std::uint8_t value = 0; value < 16; ++value) {
        const auto digit = static_cast<unsigned char>(kDigits[value]);
        values[digit] = value;
        values[value < 10 ? digit : digit - 'a' + 'A'] = value;
    }
    return values;
}();

std::uint8_t digit_value(char c) {
    return kDigitValues[static_cast<unsigned char>(c)];
}

// Takes the next byte off a text as strtoul() does, which is left to judge everything but one or
// two digits.
std::uint8_t take_byte(const char*& at) {
    const std::uint8_t high = digit_value(at[0]);
    if (high != kNoDigit) {
        const std::uint8_t low = digit_value(at[1]);
        if (low == kNoDigit && at[1] != 'x' && at[1] != 'X') {
            at += 1;
            return high;
        }
        if (low != kNoDigit && digit_value(at[2]) == kNoDigit) {
            at += 2;
            return static_cast<std::uint8_t>(high << 4U | low);
        }
    }
    char* end = nullptr;
    const unsigned long value = std::strtoul(at, &end, 16);
    at = end;
    return static_cast<std::uint8_t>(value);
}

// Two digits and a separator, as nearly all texts have them.
bool parse_pairs(const char* at, std::uint8_t* out) {
    for (int i = 0; i < ZXNET_MAC_SIZE; ++i, at += 3) {
        const std::uint8_t high = digit_value(at[0]);
        if (high == kNoDigit) {
            return false;
        }
        const std::uint8_t low = digit_value(at[1]);
        if (low == kNoDigit || digit_value(at[2]) != kNoDigit) {
            return false;
        }
        out[i] = static_cast<std::uint8_t>(high << 4U | low);
        if (at[2] == '\0') {
            return i == ZXNET_MAC_SIZE - 1;
        }
    }
    return true;
}

void parse_mac(const char* at, std::uint8_t* out) {
    if (parse_pairs(at, out)) {
        return;
    }
    for (int i = 0; i < ZXNET_MAC_SIZE; ++i) {
        out[i] = take_byte(at);
        if (*at != '\0') {
            ++at;
        }
    }
}

// True when both pointers are there.
bool has_bytes(const void* from, const void* to, const char* from_name, const char* to_name,
               zx::Caller caller = {}) {
    if (from == nullptr || to == nullptr) {
        ZX_LOG_AT(caller, error, "Param error####%s", from == nullptr ? from_name : to_name);
        return false;
    }
    return true;
}

}  // namespace

extern "C" int32_t zxnet_api_macStr2Byte(const char* text, uint8_t* out6) {
    if (!has_bytes(text, out6, "pmacstr", "poutbuf")) {
        return -1;
    }
    parse_mac(text, out6);
    return 0;
}

extern "C" int32_t zxnet_api_macByte2str(const uint8_t* bytes, uint32_t len, char* out) {
    if (!has_bytes(bytes, out, "bytes", "out")) {
        return 0;
    }
    char* at = out + std::strlen(out);
    for (uint32_t i = 0; i < len; ++i) {
        if (i > 0) {
            *at++ = ':';
        }
        if (bytes[i] > 0xF) {
            *at++ = kDigits[bytes[i] >> 4U];
        }
        *at++ = kDigits[bytes[i] & 0xFU];
    }
    *at = '\0';
    return static_cast<int32_t>(len);
}

extern "C" int32_t zxnet_api_isVaildMac(const char* text) {
    if (text == nullptr) {
        ZX_LOG_PARAM("pmacstr");
        return -1;
    }
    std::uint8_t mac[ZXNET_MAC_SIZE];
    parse_mac(text, mac);
    return (mac[0] & kGroupBit) == 0 ? 1 : 0;
}

extern "C" int32_t zxnet_api_getMulticastDestMac(char* out, const char* group) {
    if (!has_bytes(group, out, "group", "out")) {
        return 0;
    }
    const std::uint32_t ip = ntohl(inet_addr(group));
    std::memset(out, 0, std::strlen(out));
    // The second octet whole, although Ethernet maps its lower seven bits alone.
    return std::snprintf(out, ZXNET_MAC_TEXT_SIZE, "01:00:5e:%02x:%02x:%02x", zx::octet(ip, 1),
                         zx::octet(ip, 2), zx::octet(ip, 3));
}

extern "C" void zxnet_api_num2str(const void* src, uint32_t len, void* dst) {
    if (has_bytes(src, dst, "src", "dst")) {
        std::memmove(dst, src, len);
    }
}

extern "C" void zxnet_api_str2num(const void* src, uint32_t len, void* dst) {
    if (has_bytes(src, dst, "src", "dst")) {
        std::memmove(dst, src, len);
    }
}

extern "C" int32_t zxnet_api_num2str16(const uint8_t* bytes, uint32_t len, char* out) {
    if (!has_bytes(bytes, out, "bytes", "out")) {
        return 0;
    }
    char* at = out + std::strlen(out);
    for (uint32_t i = 0; i < len; ++i) {
        *at++ = kDigits[bytes[i] >> 4U];
        *at++ = kDigits[bytes[i] & 0xFU];
    }
    *at = '\0';
    return static_cast<int32_t>(len);
}
