// Dotted texts as the interface reads them: with any fields, as long as there are four.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "internal/dotted.hpp"
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

[[nodiscard]] inline std::optional<std::uint32_t> parse_dotted(const DottedForm& form,
                                                               const char* text,
                                                               Caller caller = {}) {
    const std::optional<std::uint32_t> canonical = parse_canonical(text);
    return canonical ? canonical : parse_fields(form, text, caller);
}

}  // namespace zx
