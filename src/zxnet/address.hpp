// What a name resolves to, and how IPv4 addresses are written as IPv6.
#pragma once

#include <netdb.h>

#include <memory>
#include <string_view>

namespace zx {

inline constexpr std::string_view kMapped{"::ffff:"};

struct AddressesFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using UniqueAddresses = std::unique_ptr<addrinfo, AddressesFreer>;

}  // namespace zx
