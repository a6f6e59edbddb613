// Opens what an input receives from.
#pragma once

#include <netdb.h>
#include <sys/socket.h>

#include <string>

#include "config/url.hpp"
#include "zxcommon.hpp"

namespace relay {

// A socket for datagrams, a listener, a file or standard input. Inputs that connect have none: they
// open their sockets when they run. Throws a Failure.
zxcommon::Descriptor open_input(const Url& url, const std::string& interface);

bool is_multicast(const sockaddr_storage& address);

// The first address of a list.
sockaddr_storage stored(const addrinfo& info);

// The number of a network interface; 0, which lets the kernel choose, for no name. Throws a Failure
// if there is no such interface.
unsigned interface_index(const std::string& name);

}  // namespace relay
