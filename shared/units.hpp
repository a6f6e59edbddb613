// Units of time.
#pragma once

#include <cstdint>

namespace zx {

inline constexpr std::uint64_t kUsPerSec = 1000000;

}  // namespace zx
