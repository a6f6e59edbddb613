// Frames between two stations, and what the frame engine logs.
#pragma once

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bytes.hpp"
#include "zxframe.h"

namespace zx::test {

using Lines = std::vector<std::string>;

inline Lines split(const std::string& text, char separator) {
    Lines parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

// "06 TCP|11 UDP" as pairs.
inline std::vector<std::pair<std::string, std::string>> table(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> rows;
    for (const auto& row : split(text, '|')) {
        rows.emplace_back(row.substr(0, row.find(' ')), row.substr(row.find(' ') + 1));
    }
    return rows;
}

// "one|two" as two lines of information.
inline Lines infos(const std::string& bodies) {
    Lines lines = split(bodies, '|');
    for (auto& line : lines) {
        line.insert(0, "[INFO][NETFRAME]");
    }
    return lines;
}

// A frame between the two, from its EtherType on, with what must be readable.
inline Bytes frame(const std::string& hex) {
    return from_hex("001b21aabbcc 02005e100001" + hex, ZXFRAME_READABLE);
}

// All that is logged for such a frame: of its Ethernet header, and what follows.
inline Lines frame_dump(const std::string& rest) {
    Lines lines = infos(
        "============  ether header info  ============|Destination:00:1b:21:aa:bb:cc|"
        "Source:02:00:5e:10:00:01|" +
        rest);
    lines.insert(lines.begin(), "[NOTICE][NETFRAME]============  FRAME  ============");
    return lines;
}

// An IPv4 packet from 192.168.1.10 to 10.0.0.200 with a total length of 40.
inline Bytes packet(const std::string& protocol, const std::string& transport = "") {
    return frame("0800 45000028 00010000 40" + protocol + "0000 c0a8010a 0a0000c8" + transport);
}

// A TCP header from port 443 to 50000: its bytes 12 and 13, and its options.
inline std::string tcp_header(const std::string& offset_and_flags,
                              const std::string& options = "") {
    return "01bbc350 00000000 00000000" + offset_and_flags + "0000 00000000" + options;
}

}  // namespace zx::test
