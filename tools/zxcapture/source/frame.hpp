// A frame from a source.
#pragma once

#include <time.h>

#include <cstdint>
#include <span>

namespace capture {

struct Frame {
    std::span<const std::uint8_t> bytes;  // the captured part
    std::uint32_t length = 0;             // bytes on the wire
    timespec time{};
    int link = 1;  // its link type as libpcap numbers them (DLT_…); 1: Ethernet
};

}  // namespace capture
