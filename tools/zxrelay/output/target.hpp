// Where datagrams go.
#pragma once

#include <optional>
#include <string>

#include "config/url.hpp"

namespace relay {

struct Target {
    std::string text;  // as it was written
    bool is_rtp = false;
    Endpoint endpoint{};
    std::optional<int> ttl;  // the number of hops; nothing: the kernel's, which is 1 for groups
    std::string interface;   // empty: the kernel chooses
    std::string localaddr;   // to send from; empty: the kernel chooses
};

// Reads udp://ADDRESS:PORT or rtp://ADDRESS:PORT with "?ttl=N&interface=NAME&localaddr=ADDRESS".
// Throws a Failure that says what is wrong.
Target parse_target(const std::string& text);

}  // namespace relay
