// Resolving the names of hosts.
#include "zxnet/resolve.hpp"

#include <netdb.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

#include "internal/cancel.hpp"
#include "zxdiag/trace.hpp"
#include "zxnet.h"
#include "zxnet/address.hpp"
#include "zxnet/messages.hpp"

static_assert(sizeof(domainaddr_ctt) == 4129);
static_assert(offsetof(domainaddr_ctt, address) == 1);
static_assert(offsetof(domainaddr_ctt, family) == 4097);

namespace {

struct AddressesFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using UniqueAddresses = std::unique_ptr<addrinfo, AddressesFreer>;

struct Answer {
    bool failed;
    UniqueAddresses list;
};

// The resolver opens files and allocates memory, so the caller must hold cancellation back.
Answer resolve(const char* host, const char* service, int family) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, host, -1);
    const bool failed = getaddrinfo(host, service, &hints, &list) != 0;
    return {failed, UniqueAddresses(failed ? nullptr : list)};
}

// A long text continues in the next slot, which the next address overwrites. Nothing is stored
// after the end of the record.
void add_address(domainaddr_ctt& record, const char* text, bool is_ipv6) {
    const std::size_t index = record.count++;
    const std::size_t at = offsetof(domainaddr_ctt, address) + index * sizeof record.address[0];
    if (at < sizeof record) {
        const std::size_t size = std::min(std::strlen(text) + 1, sizeof record - at);
        std::memcpy(reinterpret_cast<char*>(&record) + at, text, size);
    }
    if (index < sizeof record.family) {
        record.family[index] = is_ipv6 ? 1 : 0;
    }
}

}  // namespace

std::optional<sockaddr_in> zx::net::resolve_ipv4(const char* host) {
    const zx::CancelHeld held;
    const Answer answer = resolve(host, nullptr, AF_INET);
    if (answer.list == nullptr) {
        return std::nullopt;
    }
    sockaddr_in address{};
    std::memcpy(&address, answer.list->ai_addr, sizeof address);
    return address;
}

extern "C" int32_t zxnet_api_parseDomainName(const char* host, const char* service,
                                             domainaddr_ctt* out) {
    if (!ZX_ARE_GIVEN({host, "hostname"}, {out, "ipaddr"})) {
        return -1;
    }
    if (host[0] == '\0') {
        ZX_LOG(error, "phostname %s len is 0,ret -1", host);
        return -1;
    }
    *out = {};
    const zx::CancelHeld held;
    const Answer answer = resolve(host, service, AF_UNSPEC);
    if (answer.failed) {
        ZX_LOG(error, "getaddrinfo %s failed", host);
        return -1;
    }
    if (answer.list == nullptr) {
        ZX_LOG(error, "No addrinfo");
        return -2;
    }
    for (const addrinfo* entry = answer.list.get(); entry != nullptr; entry = entry->ai_next) {
        char text[ZXNET_ADDRESS_TEXT_SIZE]{};
        zx::net::print_sockaddr(entry->ai_addr, text);
        ZX_LOG(debug, "phostname:%s--%d:%s", host, out->count, text);
        add_address(*out, text, entry->ai_family == AF_INET6);
    }
    return 0;
}
