// The sockets of the relay.
#pragma once

#include <netdb.h>

#include <memory>
#include <string>

#include "config/network.hpp"
#include "config/url.hpp"
#include "zxcommon.hpp"

namespace relay {

struct AddressesFree {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressesFree>;

// The addresses of an endpoint for sockets of this type, such as SOCK_STREAM. Throws a Failure.
Addresses resolve(const Endpoint& endpoint, int type);

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
