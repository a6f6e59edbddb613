// Units of time.
#pragma once

#include <cstdint>

namespace tools {

inline constexpr std::uint64_t kMicro = 1000000;  // microseconds in a second

}  // namespace tools
