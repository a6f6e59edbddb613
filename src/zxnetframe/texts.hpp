// Addresses as texts and back.
#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include "zxframe.h"
#include "zxnet.h"

namespace zx::frame {

using HexPair = std::array<char, 2>;

inline constexpr std::array<HexPair, 256> kHexPairs = [] {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<HexPair, 256> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value) {
        pairs[value] = {kDigits[value / 16], kDigits[value % 16]};
    }
    return pairs;
}();

inline void print_mac(const std::uint8_t* mac, char (&out)[ZXFRAME_MAC_TEXT_SIZE]) {
    char* at = out;
    for (int i = 0; i < ZXFRAME_MAC_SIZE; ++i, at += 3) {
        std::memcpy(at, kHexPairs[mac[i]].data(), 2);
        at[2] = ':';
    }
    out[ZXFRAME_MAC_TEXT_SIZE - 1] = '\0';
}

struct MacText {
    explicit MacText(const std::uint8_t* mac) { print_mac(mac, text); }
    char text[ZXFRAME_MAC_TEXT_SIZE];
};

// The dotted text of an address in network order.
struct AddressText {
    explicit AddressText(std::uint32_t address)
        : size(static_cast<std::size_t>(zxnet_api_ipByte2Str(ntohl(address), text))) {}
    char text[ZXNET_IP_TEXT_SIZE] = "";
    std::size_t size;
};

// An address in network order.
[[nodiscard]] inline std::optional<std::uint32_t> parse_address(const char* text) {
    in_addr address{};
    if (text == nullptr || inet_aton(text, &address) == 0) {
        return std::nullopt;
    }
    return address.s_addr;
}

// What is sent, in host order: a text that is no address becomes all ones.
[[nodiscard]] inline std::uint32_t address_to_send(const char* text) {
    return ntohl(parse_address(text).value_or(INADDR_NONE));
}

}  // namespace zx::frame
