// The sockets of the relay.
#pragma once

#include <string>

#include "zxcommon.hpp"

namespace relay {

// "host:port" or "[host]:port"; the host is a name or an address.
struct Endpoint {
    std::string host;
    std::string port;
    [[nodiscard]] std::string text() const;
};

struct Input {
    bool is_udp = false;
    Endpoint endpoint;
};

// These functions throw a Failure that says what is wrong with the text.
Input parse_input(const std::string& url);
Endpoint parse_output(const std::string& text);

// These functions return a non-blocking close-on-exec socket, or throw a Failure.
zxcommon::Descriptor open_listener(const Endpoint& endpoint, int backlog);
zxcommon::Descriptor open_source(const Input& input, const std::string& interface);

// Accepts the next connection and writes its peer's address to `peer`. The returned descriptor is
// non-blocking; the kernel ends the connection if the peer vanishes without closing it. Returns -1
// and sets `errno` if it accepts none.
int accept_connection(int listener, std::string& peer);

// For a connection of a client: the kernel sends at once, and keeps little that it has not sent.
void prepare_for_stream(int fd);

}  // namespace relay
