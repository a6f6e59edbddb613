// Opens what an input receives from.
#pragma once

#include <netdb.h>
#include <sys/socket.h>

#include <string>

#include "config/url.hpp"
#include "zxcommon.hpp"

namespace relay {

// An input whose socket or file is open.
struct OpenInput {
    Url url;
    std::string interface;  // as the user has named it
    zxcommon::Descriptor fd;
};

// A socket for datagrams, a listener, a file or standard input. Inputs that connect have none: they
// open their sockets when they run. Throws a Failure.
zxcommon::Descriptor open_input(const Url& url, const std::string& interface);

// Joins the multicast group of the input once more, because its interface may have gone and come
// back.
void join_again(const OpenInput& input);

bool is_multicast(const sockaddr_storage& address);

// The first address of a list.
sockaddr_storage stored(const addrinfo& info);

// The number of a network interface; 0, which lets the kernel choose, for no name. Throws a Failure
// if there is no such interface.
unsigned interface_index(const std::string& name);

}  // namespace relay
