// Whole-file access, for the modules that read and write files of their own.
#pragma once

#include <cstdint>

#include "internal/guard.hpp"

namespace zx::md {

inline constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;  // results are signed

// What zxmd_api_read() does with an opened file; null was not opened. `func` speaks of `path`.
std::int32_t read_once(const char* func, const char* path, UniqueFile file, void* buf,
                       std::uint32_t len);

}  // namespace zx::md
