// The largest length that the interface takes.
#pragma once

#include <cstdint>

#include "internal/log.hpp"

namespace zx {

inline constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;  // the results are signed

// Limits `len`, and warns when that makes it smaller. `what` is the first word of the warning. The
// third parameter has the name that ZX_LOG_AT() expects.
inline std::uint32_t limited(std::uint32_t len, const char* what, const char* kTag,
                             Caller caller = {}) {
    constexpr int kLimit = kMaxLength;
    if (len <= kMaxLength) [[likely]] {
        return len;
    }
    ZX_LOG_AT(caller, warning, "%s len(%d) is out of range(0~%d),set to %d", what,
              static_cast<int>(len), kLimit, kLimit);
    return kMaxLength;
}

}  // namespace zx
