// Reading and writing as much of a file as there is, or as is asked for.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "internal/guard.hpp"
#include "internal/log.hpp"

namespace zx {

inline constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;  // results are signed

// Moves bytes on in steps, from the count so far, until all are moved, or a step moves none or
// fails. A signal is no failure.
template <typename Step>
std::size_t move_whole(std::size_t size, Step step) {
    std::size_t total = 0;
    while (total < size) {
        const ssize_t count = step(total);
        if (count > 0) {
            total += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    return total;
}

// Reads until `size` bytes, the end or an error; a signal is none. Returns the bytes.
inline std::size_t read_whole(int fd, void* buf, std::size_t size) {
    return move_whole(size, [=](std::size_t total) {
        return read(fd, static_cast<char*>(buf) + total, size - total);
    });
}

// How much of `len` is read; less is logged. Files are zxmd's, whoever reads them.
inline std::uint32_t limited_read(std::uint32_t len, Caller caller = {}) {
    constexpr char kTag[] = "ZXMD";
    constexpr int kLimit = kMaxLength;
    if (len <= kMaxLength) {
        return len;
    }
    ZX_LOG_AT(caller, warning, "Read len(%d) is out of range(0~%d),set to %d",
              static_cast<int>(len), kLimit, kLimit);
    return kLimit;
}

// What zxmd_api_read() does with a file that was opened within `held`; below 0 it could not be.
// `path` is its name in messages.
inline std::int32_t read_once(CancelHeld& held, const char* path, UniqueFd file, void* buf,
                              std::uint32_t len, Caller caller = {}) {
    constexpr char kTag[] = "ZXMD";
    const std::uint32_t size = limited_read(len, caller);
    if (file.get() < 0) {
        ZX_LOG_AT(caller, error, "Open (%s) failed", path);
        return -1;
    }
    const std::size_t count =
        held.wait([&] { return read_whole(file.get(), buf, size); }, [&] { file.reset(); });
    if (count < size) {
        static_cast<char*>(buf)[count] = '\0';
    }
    return static_cast<std::int32_t>(count);
}

}  // namespace zx
