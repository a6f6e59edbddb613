// A frame from a source.
#pragma once

#include <time.h>

#include <cstdint>
#include <span>

namespace capture {

// The limit that libpcap itself has. With offloads, frames are much larger than 64 KiB.
inline constexpr std::uint32_t kLargestFrame = 256U << 10U;

struct Frame {
    std::span<const std::uint8_t> bytes;  // the captured part
    std::uint32_t length = 0;             // bytes on the wire, at least those captured
    timespec time{};  // from 1970 to 2262, so that its nanoseconds fit into 64 bits
    int link = 1;     // its link type as libpcap numbers them (DLT_…); 1: Ethernet
};

// The time in microseconds. A damaged file may contain any number.
[[nodiscard]] inline std::int64_t microseconds_of(const timespec& time) {
    constexpr std::int64_t kMostSeconds = std::int64_t{1} << 40U;
    const std::int64_t seconds = time.tv_sec < 0              ? 0
                                 : time.tv_sec > kMostSeconds ? kMostSeconds
                                                              : time.tv_sec;
    const bool is_good = time.tv_nsec >= 0 && time.tv_nsec < 1000000000;
    return seconds * 1000000 + (is_good ? time.tv_nsec / 1000 : 0);
}

}  // namespace capture
