#include "zxnet/dotted_form.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "zxnet/messages.hpp"

namespace zx {

std::optional<std::uint32_t> parse_fields(const DottedForm& form, const char* text, Caller caller) {
    char copy[kDottedSize + 1]{};
    char* fields[kDottedSize];
    const std::size_t needed = std::strlen(text) + 1;
    if (needed > form.size) {
        ZX_LOG_CUT_AT(caller, form.size, needed, text);
    }
    std::memcpy(copy, text, std::min(needed, form.size));
    const std::int32_t count = form.split(copy, ".", fields);
    if (count != 4) {
        ZX_LOG_AT(caller, error, "Error %s(%s),num is %d", form.name, copy, count);
        return std::nullopt;
    }
    std::uint32_t ip = 0;
    for (int i = 0; i < count; ++i) {
        ip = ip << 8U | (static_cast<std::uint32_t>(std::strtol(fields[i], nullptr, 10)) & 0xFFU);
    }
    return ip;
}

}  // namespace zx
