// Whole-file access, for the modules that read and write files of their own.
#pragma once

#include <cstdint>

namespace zx::md {

inline constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;  // results are signed

// zxmd_api_read() on behalf of `func`, with more flags for open(). The arguments are there.
std::int32_t read_once(const char* func, const char* path, int flags, void* buf, std::uint32_t len);

}  // namespace zx::md
