// Four numbers with dots between them, the most significant first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace zx {

// How a function takes its text apart.
struct DottedForm {
    const char* name;  // of the text, in messages
    std::size_t size;  // bytes of the text that count
    std::int32_t (*split)(char* text, const char* dot, char** fields);
};

inline constexpr std::size_t kDottedSize = 256;

// Any text: fields wrap modulo 256 and count as 0 without digits; only their number is checked.
// Speaks for the function `func`.
[[nodiscard]] std::optional<std::uint32_t> parse_fields(const char* func, const DottedForm& form,
                                                        const char* text);

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

[[nodiscard]] inline std::optional<std::uint32_t> parse_dotted(const char* func,
                                                               const DottedForm& form,
                                                               const char* text) {
    const std::optional<std::uint32_t> plain = parse_four<Fields::any>(text);
    return plain ? plain : parse_fields(func, form, text);
}

// Byte `index` of an address in the order of its text.
[[nodiscard]] constexpr std::uint8_t octet(std::uint32_t ip, unsigned index) {
    return static_cast<std::uint8_t>(ip >> (24U - 8U * index));
}

}  // namespace zx
