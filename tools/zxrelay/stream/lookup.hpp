// Looks up the addresses of host names, which may take long.
#pragma once

#include <netdb.h>

#include <chrono>
#include <memory>

#include "config/url.hpp"

namespace relay {

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

// `type` is SOCK_STREAM or SOCK_DGRAM. Throws a Failure.
Addresses resolve(const Endpoint& endpoint, int type);

// For a thread that must not wait: as long as an object exists, resolve() waits for name servers
// for half a second in all. A lookup that takes longer fails, and goes on in a thread of its own: a
// later resolve() of the same name finds its result.
class HurriedLookups {
public:
    HurriedLookups();
    HurriedLookups(const HurriedLookups&) = delete;
    HurriedLookups& operator=(const HurriedLookups&) = delete;
    ~HurriedLookups();

private:
    const std::chrono::steady_clock::time_point deadline_;
};

}  // namespace relay
