// What the system knows by a name or a number: hosts, sockets, descriptors, ways of configuring.
#include "zxnet.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "internal/cancel.hpp"
#include "internal/log.hpp"
#include "zxnet/addresses.hpp"

static_assert(sizeof(domainaddr_ctt) == 4129);
static_assert(offsetof(domainaddr_ctt, address) == 1);
static_assert(offsetof(domainaddr_ctt, family) == 4097);
static_assert(ZXNET_ADDRESS_TEXT_SIZE == INET6_ADDRSTRLEN);

namespace {

constexpr char kTag[] = "NETWORK";
constexpr int kLastStandardFd = 2;

constexpr std::array<const char*, ZXNET_IPMODE_MAX> kIpModes{"unkonw", "static", "dhcp",
                                                             "bond-slaver", "bond-master"};

// `out` has ZXNET_ADDRESS_TEXT_SIZE bytes. Every family but AF_INET6 counts as IPv4.
void print_sockaddr(const sockaddr* sa, char* out) {
    const auto* const bytes = reinterpret_cast<const char*>(sa);
    if (sa->sa_family == AF_INET6) {
        in6_addr address;
        std::memcpy(&address, bytes + offsetof(sockaddr_in6, sin6_addr), sizeof address);
        inet_ntop(AF_INET6, &address, out, ZXNET_ADDRESS_TEXT_SIZE);
        return;
    }
    in_addr address;
    std::memcpy(&address, bytes + offsetof(sockaddr_in, sin_addr), sizeof address);
    inet_ntop(AF_INET, &address, out, ZXNET_ADDRESS_TEXT_SIZE);
}

// A long text runs into the next slot, which the next address overwrites; only what would lie
// behind the record is not stored.
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

extern "C" void zxnet_api_getIpaddr(const struct sockaddr* sa, char* out) {
    if (sa == nullptr || out == nullptr) {
        ZX_LOG_PARAM(sa == nullptr ? "sa" : "out");
        return;
    }
    print_sockaddr(sa, out);
    if (sa->sa_family != AF_INET6) {
        ZX_LOG(debug, "---ipv4:%s", out);
        return;
    }
    if (std::strncmp(out, zx::kMapped.data(), zx::kMapped.size()) != 0) {
        ZX_LOG(debug, "---ipv6:%s", out);
        return;
    }
    std::memmove(out, out + zx::kMapped.size(), std::strlen(out + zx::kMapped.size()) + 1);
    ZX_LOG(debug, "---ipv6,ipv4:::ffff:%s,%s", out, out);
}

extern "C" int32_t zxnet_api_parseDomainName(const char* host, const char* service,
                                             domainaddr_ctt* out) {
    if (host == nullptr || out == nullptr) {
        ZX_LOG_PARAM(host == nullptr ? "hostname" : "ipaddr");
        return -1;
    }
    if (host[0] == '\0') {
        ZX_LOG(error, "phostname %s len is 0,ret -1", host);
        return -1;
    }
    *out = {};
    const zx::CancelHeld held;  // the resolver has files and memory of its own
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (getaddrinfo(host, service, &hints, &list) != 0) {
        ZX_LOG(error, "getaddrinfo %s failed", host);
        return -1;
    }
    if (list == nullptr) {
        ZX_LOG(error, "No addrinfo");
        return -2;
    }
    const zx::UniqueAddresses found(list);
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        char text[ZXNET_ADDRESS_TEXT_SIZE]{};
        print_sockaddr(entry->ai_addr, text);
        ZX_LOG(debug, "phostname:%s--%d:%s", host, out->count, text);
        add_address(*out, text, entry->ai_family == AF_INET6);
    }
    return 0;
}

extern "C" ipmode_e zxnet_api_getIpMode(const char* text) {
    if (text == nullptr) {
        ZX_LOG_PARAM("text");
        return ZXNET_IPMODE_UNKNOWN;
    }
    for (std::size_t i = 0; i < kIpModes.size(); ++i) {
        if (std::strcmp(text, kIpModes[i]) == 0) {
            return static_cast<ipmode_e>(i);
        }
    }
    return ZXNET_IPMODE_UNKNOWN;
}

extern "C" int32_t zxnet_api_isVaildFd(int fd) {
    return fd > kLastStandardFd ? 1 : 0;
}

extern "C" char* zxnet_api_net2str(const uint32_t* netorder) {
    if (netorder == nullptr) {
        ZX_LOG_PARAM("netorder");
        return nullptr;
    }
    in_addr address;
    std::memcpy(&address, netorder, sizeof address);
    return inet_ntoa(address);
}
