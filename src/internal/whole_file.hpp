// Reading and writing in full, however many calls it takes.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "internal/guard.hpp"
#include "internal/length.hpp"
#include "internal/log.hpp"

namespace zx {

// Calls `step` with the count so far until all bytes are moved, or a step moves none or fails. An
// interruption by a signal is no failure.
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

// Reads `size` bytes, or fewer when the file ends or an error occurs. Returns the number of bytes.
inline std::size_t read_whole(int fd, void* buf, std::size_t size) {
    return move_whole(size, [=](std::size_t total) {
        return read(fd, static_cast<char*>(buf) + total, size - total);
    });
}

// Reads a file as zxmd_api_read() does. It was opened within `held`; a descriptor below 0 means
// that this failed. `path` is its name in messages, which have the tag of zxmd.
inline std::int32_t read_once(CancelHeld& held, const char* path, UniqueFd file, void* buf,
                              std::uint32_t len, Caller caller = {}) {
    constexpr char kTag[] = "ZXMD";
    const std::uint32_t size = limited(len, "Read", kTag, caller);
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
