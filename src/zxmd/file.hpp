// Whole-file access, for the modules that read and write files of their own.
#pragma once

#include <cstdint>

#include <cstdio>

#include "internal/guard.hpp"
#include "internal/log.hpp"

namespace zx::md {

inline constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;  // results are signed

// As fread() for bytes, but a signal does not end it.
std::size_t read_whole(std::FILE* file, void* buf, std::size_t size);

// What zxmd_api_read() does with a file that was opened within `held`; null was not opened. `path`
// is its name in messages.
std::int32_t read_once(CancelHeld& held, const char* path, UniqueFile file, void* buf,
                       std::uint32_t len, Caller caller = {});

}  // namespace zx::md
