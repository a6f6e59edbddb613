// Addresses as texts and as numbers, and their kinds.
#include "zxnet/address.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstring>
#include <string_view>

#include "internal/dotted.hpp"
#include "zxnet.h"
#include "zxnet/dotted_form.hpp"
#include "zxnet/messages.hpp"
#include "zxstr.h"

static_assert(ZXNET_ADDRESS_TEXT_SIZE == INET6_ADDRSTRLEN);

namespace {

constexpr zx::DottedForm kAddress{"pipaddr_start", ZXNET_IP_TEXT_SIZE, zxstr_api_split};
constexpr zx::DottedForm kSharedAddress{"ipaddr", zx::kDottedSize, zxstr_api_split2};
static_assert(kAddress.size <= zx::kDottedSize);
constexpr std::uint32_t kSharedSpace = 0x64400000;  // 100.64.0.0/10, RFC 6598
constexpr std::uint32_t kSharedMask = 0xFFC00000;
constexpr std::string_view kMapped{"::ffff:"};  // the start of an IPv4 address written as IPv6

bool is_ipv6(const char* text) {
    return zxstr_api_isCasestr(text, ":") != 0;
}

// 0 when the text is not an address.
std::uint32_t address_of(const char* text) {
    return zx::parse_dotted(kAddress, text, "zxnet_api_ipStr2Byte").value_or(0);
}

}  // namespace

std::int32_t zx::net::print_over(std::uint32_t ip, char* text) {
    const std::size_t old_length = std::strlen(text);
    const std::size_t length = zx::print_dotted(ip, text);
    if (old_length > length) {
        std::memset(text + length, 0, old_length - length);
    }
    return static_cast<std::int32_t>(length);
}

void zx::net::print_sockaddr(const sockaddr* sa, char* out) {
    const auto* const bytes = reinterpret_cast<const char*>(sa);
    if (sa->sa_family == AF_INET6) {
        in6_addr address;
        std::memcpy(&address, bytes + offsetof(sockaddr_in6, sin6_addr), sizeof address);
        inet_ntop(AF_INET6, &address, out, ZXNET_ADDRESS_TEXT_SIZE);
        return;
    }
    std::uint32_t address = 0;
    std::memcpy(&address, bytes + offsetof(sockaddr_in, sin_addr), sizeof address);
    zx::print_dotted(ntohl(address), out);
}

extern "C" int32_t zxnet_api_isIpv6(const char* text) {
    return ZX_ARE_GIVEN({text, "text"}) && is_ipv6(text) ? 1 : 0;
}

extern "C" int32_t zxnet_api_isMulticast(const char* text) {
    if (!ZX_ARE_GIVEN({text, "text"})) {
        return 0;
    }
    if (is_ipv6(text)) {
        in6_addr address{};
        inet_pton(AF_INET6, text, &address);  // no address: stays zero
        return address.s6_addr[0] == 0xFF ? 1 : 0;
    }
    return IN_MULTICAST(ntohl(inet_addr(text))) ? 1 : 0;
}

extern "C" void zxnet_api_outIpv6(char* text) {
    if (!ZX_ARE_GIVEN({text, "text"})) {
        return;
    }
    if (!is_ipv6(text)) {
        std::memmove(text + kMapped.size(), text, std::strlen(text) + 1);
        std::memcpy(text, kMapped.data(), kMapped.size());
    }
}

extern "C" uint32_t zxnet_api_ipStr2Byte(const char* text) {
    return ZX_ARE_GIVEN({text, "text"}) ? address_of(text) : 0;
}

extern "C" int32_t zxnet_api_ipByte2Str(uint32_t ip, char* out) {
    return ZX_ARE_GIVEN({out, "out"}) ? zx::net::print_over(ip, out) : 0;
}

extern "C" uint32_t zxnet_api_getIpList(const char* start, const char* end, char* out,
                                        uint8_t stride) {
    if (!ZX_ARE_GIVEN({start, "start"}, {end, "end"}, {out, "out"})) {
        return 0;
    }
    const std::uint32_t first = address_of(start);
    const std::uint32_t last = address_of(end);
    std::uint32_t count = 0;
    for (std::uint32_t ip = first; ip <= last; ++ip) {
        zx::net::print_over(ip, out + std::size_t{stride} * count++);
    }
    return count;
}

extern "C" int32_t zxnet_api_isResIpaddr(const char* text) {
    if (!ZX_ARE_GIVEN({text, "text"})) {
        return 0;
    }
    if (is_ipv6(text)) {
        ZX_LOG(info, "no support  ipv6");
        return 0;
    }
    const std::uint32_t ip = zx::parse_dotted(kSharedAddress, text).value_or(0);
    return (ip & kSharedMask) == kSharedSpace ? 1 : 0;
}

extern "C" void zxnet_api_getIpaddr(const struct sockaddr* sa, char* out) {
    if (!ZX_ARE_GIVEN({sa, "sa"}, {out, "out"})) {
        return;
    }
    zx::net::print_sockaddr(sa, out);
    if (sa->sa_family != AF_INET6) {
        ZX_LOG(debug, "---ipv4:%s", out);
        return;
    }
    if (std::strncmp(out, kMapped.data(), kMapped.size()) != 0) {
        ZX_LOG(debug, "---ipv6:%s", out);
        return;
    }
    std::memmove(out, out + kMapped.size(), std::strlen(out + kMapped.size()) + 1);
    ZX_LOG(debug, "---ipv6,ipv4:::ffff:%s,%s", out, out);
}

extern "C" char* zxnet_api_net2str(const uint32_t* netorder) {
    if (!ZX_ARE_GIVEN({netorder, "netorder"})) {
        return nullptr;
    }
    in_addr address;
    std::memcpy(&address, netorder, sizeof address);
    return inet_ntoa(address);
}
