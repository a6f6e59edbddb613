// The sockets of the relay.
#pragma once

#include <string>

#include "zxcommon.hpp"

namespace relay {

// "host:port" or "[host]:port", the host a name or an address.
struct Endpoint {
    std::string host;
    std::string port;
    [[nodiscard]] std::string text() const;
};

struct Input {
    bool is_udp = false;
    Endpoint endpoint;
};

// These throw a Failure that says what is wrong with the text.
Input parse_input(const std::string& url);
Endpoint parse_output(const std::string& text);

// Non-blocking and close-on-exec; a Failure says why one cannot be had.
zxcommon::Descriptor open_listener(const Endpoint& endpoint, int backlog);
zxcommon::Descriptor open_source(const Input& input, const std::string& interface);

// The next connection of a listener, non-blocking, with its peer's address as text; the kernel ends
// it when the peer is gone without a word. -1: none, with `errno` set.
int accept_connection(int listener, std::string& peer);

}  // namespace relay
