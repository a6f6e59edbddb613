// Working on several blocks at once when the output may overlap the input.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zx {

// True when `size` bytes can be read before any of them is written. The output may be the input
// itself or begin before it, but not inside those bytes.
[[nodiscard]] inline bool is_apart(const std::uint8_t* in, const std::uint8_t* out,
                                   std::size_t size) {
    // Very large when the output begins before the input.
    const std::size_t ahead =
        reinterpret_cast<std::uintptr_t>(out) - reinterpret_cast<std::uintptr_t>(in);
    return ahead == 0 || ahead >= size;
}

}  // namespace zx
