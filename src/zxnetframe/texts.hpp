// Addresses as texts and back.
#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include "internal/dotted.hpp"
#include "shared/hex.hpp"
#include "zxframe.h"
#include "zxnet.h"

namespace zx::frame {

// "0a:" and a fourth byte, which the next text overwrites. So each text takes one store.
using HexText = std::array<char, 4>;

inline constexpr std::array<HexText, 256> kHexTexts = [] {
    std::array<HexText, 256> texts{};
    for (std::size_t value = 0; value < texts.size(); ++value) {
        texts[value] = {kLowerDigits[value / 16], kLowerDigits[value % 16], ':', '\0'};
    }
    return texts;
}();

inline void print_mac(const std::uint8_t* mac, char (&out)[ZXFRAME_MAC_TEXT_SIZE]) {
    constexpr std::size_t kLast = ZXFRAME_MAC_SIZE - 1;
    for (std::size_t i = 0; i < kLast; ++i) {
        std::memcpy(out + 3 * i, kHexTexts[mac[i]].data(), sizeof(HexText));
    }
    std::memcpy(out + 3 * kLast, kHexTexts[mac[kLast]].data(), 2);
    out[ZXFRAME_MAC_TEXT_SIZE - 1] = '\0';
}

struct MacText {
    explicit MacText(const std::uint8_t* mac) { print_mac(mac, text); }
    char text[ZXFRAME_MAC_TEXT_SIZE];
};

using zx::AddressText;

// Reads an address into network order. inet_aton() is slow, so it only gets what is not four
// decimal numbers.
[[nodiscard]] inline std::optional<std::uint32_t> parse_address(const char* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    if (const std::optional<std::uint32_t> ip = parse_canonical(text)) {
        return htonl(*ip);
    }
    in_addr address{};
    return inet_aton(text, &address) != 0 ? std::optional(address.s_addr) : std::nullopt;
}

// The address to send, in host order. A text that is not an address becomes all ones.
[[nodiscard]] inline std::uint32_t address_to_send(const char* text) {
    return ntohl(parse_address(text).value_or(INADDR_NONE));
}

}  // namespace zx::frame
