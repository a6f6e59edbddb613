// Dotted texts as the interface reads them: any four fields will do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "internal/dotted.hpp"
#include "internal/log.hpp"

namespace zx {

// How a function of the interface splits its text.
struct DottedForm {
    const char* name;  // the name of the text in messages
    std::size_t size;  // this many bytes of the text are read
    std::int32_t (*split)(char* text, const char* dot, char** fields);
};

inline constexpr std::size_t kDottedSize = 256;

// Reads any text with four fields. Each field counts modulo 256, and as 0 when it has no digits.
// Logs on behalf of `caller`.
[[nodiscard]] std::optional<std::uint32_t> parse_fields(const DottedForm& form, const char* text,
                                                        Caller caller);

[[nodiscard]] inline std::optional<std::uint32_t> parse_dotted(const DottedForm& form,
                                                               const char* text,
                                                               Caller caller = {}) {
    const std::optional<std::uint32_t> canonical = parse_canonical(text);
    return canonical ? canonical : parse_fields(form, text, caller);
}

}  // namespace zx
