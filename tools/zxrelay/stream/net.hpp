// The sockets of the relay.
#pragma once

#include <string>

#include "config/network.hpp"
#include "config/url.hpp"
#include "zxcommon.hpp"

namespace relay {

// Returns a non-blocking close-on-exec socket, or throws a Failure.
zxcommon::Descriptor open_listener(const Endpoint& endpoint, int backlog);

// Accepts the next connection and writes its peer's address to `peer`. The returned descriptor is
// non-blocking; the kernel ends the connection if the peer vanishes without closing it. Returns
// none and sets `errno` if it accepts none.
zxcommon::Descriptor accept_connection(int listener, std::string& peer);

// The address of the peer of a connection.
Address peer_address(int fd);

// For a connection of a client: the kernel sends at once, and keeps little that it has not sent.
void prepare_for_stream(int fd);

}  // namespace relay
