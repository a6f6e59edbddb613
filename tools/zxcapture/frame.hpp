// A frame as its source gives it.
#pragma once

#include <time.h>

#include <cstdint>
#include <span>

namespace capture {

struct Frame {
    std::span<const std::uint8_t> bytes;  // what was captured of it
    std::uint32_t length = 0;             // bytes on the wire
    timespec time{};
};

}  // namespace capture
