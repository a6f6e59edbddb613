// Whole-file access, for the modules that read and write files of their own.
#pragma once

#include <cstdint>

#include "internal/guard.hpp"
#include "internal/log.hpp"

namespace zx::md {

inline constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;  // results are signed

// True when both are there; otherwise what is missing was logged.
[[nodiscard]] bool has_target(const char* path, const void* buf, Caller caller = {});

// Reads until `size` bytes, the end or an error; a signal is none. Returns the bytes.
std::size_t read_whole(int fd, void* buf, std::size_t size);

// What zxmd_api_read() does with a file that was opened within `held`; below 0 it could not be.
// `path` is its name in messages.
std::int32_t read_once(CancelHeld& held, const char* path, UniqueFd file, void* buf,
                       std::uint32_t len, Caller caller = {});

}  // namespace zx::md
