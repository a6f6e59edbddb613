// Four numbers with dots between them, the most significant one first.
#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace zx {

// Reads an address as print_dotted() writes it: four numbers of at most 255 without leading zeros.
[[nodiscard]] inline std::optional<std::uint32_t> parse_canonical(const char* at) {
    constexpr auto digit = [](char c) {
        return static_cast<unsigned>(static_cast<unsigned char>(c)) - '0';
    };
    std::uint32_t ip = 0;
    for (int left = 3; left >= 0; --left) {
        unsigned value = digit(*at++);
        if (value > 9) {
            return std::nullopt;
        }
        for (int more = 2; value != 0 && more > 0 && digit(*at) <= 9; --more) {
            value = value * 10 + digit(*at++);
        }
        if (value > 0xFF || *at++ != (left > 0 ? '.' : '\0')) {
            return std::nullopt;
        }
        ip = ip << 8U | value;
    }
    return ip;
}

// Byte `index` of an address in the order of its text.
[[nodiscard]] constexpr std::uint8_t octet(std::uint32_t ip, unsigned index) {
    return static_cast<std::uint8_t>(ip >> (24U - 8U * index));
}

struct OctetText {
    char text[4];
    std::uint8_t length;
};

inline constexpr std::array<OctetText, 256> kOctets = [] {
    std::array<OctetText, 256> octets{};
    for (unsigned value = 0; value < octets.size(); ++value) {
        OctetText& octet = octets[value];
        for (unsigned unit = value >= 100 ? 100 : value >= 10 ? 10 : 1; unit > 0; unit /= 10) {
            octet.text[octet.length++] = static_cast<char>('0' + value / unit % 10);
        }
    }
    return octets;
}();

// Prints an address and returns its length. It writes nothing beyond the text and its NUL. Each of
// the first three octets is stored as four bytes, because at least that many bytes follow its
// start. The last one is stored in two halves that may overlap.
inline std::size_t print_dotted(std::uint32_t ip, char* out) {
    char* at = out;
    for (unsigned i = 0; i < 3; ++i) {
        const OctetText& text = kOctets[octet(ip, i)];
        std::memcpy(at, text.text, sizeof text.text);
        at += text.length;
        *at++ = '.';
    }
    const OctetText& last = kOctets[octet(ip, 3)];
    std::memcpy(at, last.text, 2);
    std::memcpy(at + last.length - 1, last.text + last.length - 1, 2);
    return static_cast<std::size_t>(at - out) + last.length;
}

// The text of an address in network order, filled up with zeros.
struct AddressText {
    explicit AddressText(std::uint32_t address) { print_dotted(ntohl(address), text); }
    char text[INET_ADDRSTRLEN] = "";
};

}  // namespace zx
