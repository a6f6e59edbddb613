// Networks, such as 10.0.0.0/8 and 2001:db8::/32, and network interfaces.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace relay {

// An IPv6 address. An IPv4 address is one, too: ::ffff:10.0.0.1.
using Address = std::array<std::uint8_t, 16>;

// The address of a socket of any family; :: if it has none.
Address address_of(const sockaddr_storage& socket);

struct Network {
    Address address;
    unsigned prefix;  // bits, from 0 to 128

    [[nodiscard]] bool contains(const Address& other) const;
};

// An address without a prefix stands for itself alone. Throws a Failure that says what is wrong
// with the text.
Network parse_network(const std::string& text);

// The same, for a network that must contain a multicast address.
Network parse_group_network(const std::string& text);

// Throws a Failure if there is no such interface. Empty means none.
void require_interface(const std::string& name);

bool contains(const std::vector<Network>& networks, const Address& address);

}  // namespace relay
