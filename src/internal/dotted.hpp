// Four numbers with dots between them, the most significant first.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "internal/log.hpp"

namespace zx {

// How a function takes its text apart.
struct DottedForm {
    const char* name;  // of the text, in messages
    std::size_t size;  // bytes of the text that count
    std::int32_t (*split)(char* text, const char* dot, char** fields);
};

inline constexpr std::size_t kDottedSize = 256;

// Any text: fields wrap modulo 256 and count as 0 without digits; only their number is checked.
// Speaks for the caller.
[[nodiscard]] std::optional<std::uint32_t> parse_fields(const DottedForm& form, const char* text,
                                                        Caller caller);

enum class Fields { any, canonical };

// Four fields of one to three digits and nothing else, which every form takes apart alike: they
// wrap modulo 256. Canonical fields have no leading zeros and do not exceed 255, as in the one text
// that a printed address has.
template <Fields kFields>
[[nodiscard]] inline std::optional<std::uint32_t> parse_four(const char* at) {
    constexpr bool kCanonical = kFields == Fields::canonical;
    constexpr auto digit = [](char c) {
        return static_cast<unsigned>(static_cast<unsigned char>(c)) - '0';
    };
    std::uint32_t ip = 0;
    for (int left = 3; left >= 0; --left) {
        unsigned value = digit(*at++);
        if (value > 9) {
            return std::nullopt;
        }
        const bool may_go_on = !kCanonical || value != 0;
        for (int more = 2; may_go_on && more > 0 && digit(*at) <= 9; --more) {
            value = value * 10 + digit(*at++);
        }
        if ((kCanonical && value > 0xFF) || *at++ != (left > 0 ? '.' : '\0')) {
            return std::nullopt;
        }
        ip = ip << 8U | (value & 0xFFU);
    }
    return ip;
}

[[nodiscard]] inline std::optional<std::uint32_t> parse_canonical(const char* text) {
    return parse_four<Fields::canonical>(text);
}

[[nodiscard]] inline std::optional<std::uint32_t> parse_dotted(const DottedForm& form,
                                                               const char* text,
                                                               Caller caller = {}) {
    const std::optional<std::uint32_t> plain = parse_four<Fields::any>(text);
    return plain ? plain : parse_fields(form, text, caller);
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

// Prints an address and returns its length. Never touches more than the text and its NUL: behind
// each of the first three octets stand four bytes or more, and the last one is stored in two halves
// that may overlap.
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

}  // namespace zx
