// Networks: masks, prefixes and gateways.
#include "zxnet.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <optional>

#include "internal/dotted.hpp"
#include "zxnet/address.hpp"
#include "zxnet/dotted_form.hpp"
#include "zxnet/messages.hpp"
#include "zxstr.h"

namespace {

constexpr zx::DottedForm kNetmask{"netmask", zx::kDottedSize, zxstr_api_split};
constexpr zx::DottedForm kAddress{"ipaddr", zx::kDottedSize, zxstr_api_split};

// Counts the bits of each byte. A byte whose bits are not contiguous from the left counts as 0.
int count_bits(std::uint32_t netmask) {
    int bits = 0;
    for (unsigned i = 0; i < 4; ++i) {
        const std::uint8_t byte = zx::octet(netmask, i);
        bits += std::popcount(byte) == std::countl_one(byte) ? std::popcount(byte) : 0;
    }
    return bits;
}

struct Network {
    std::uint32_t ip;
    std::uint32_t netmask;
};

// The network of an address. The mask is checked first.
std::optional<Network> parse_network(const char* ip, const char* netmask, zx::Caller caller = {}) {
    if (!zx::are_given({{ip, "ip"}, {netmask, "netmask"}}, kTag, caller)) {
        return std::nullopt;
    }
    const std::optional<std::uint32_t> mask = zx::parse_dotted(kNetmask, netmask, caller);
    if (!mask) {
        return std::nullopt;
    }
    const std::optional<std::uint32_t> address = zx::parse_dotted(kAddress, ip, caller);
    if (!address) {
        return std::nullopt;
    }
    return Network{*address & *mask, *mask};
}

}  // namespace

extern "C" int32_t zxnet_api_getNetmaskBitNum(const char* netmask) {
    if (!ZX_ARE_GIVEN({netmask, "netmask"})) {
        return 0;
    }
    return count_bits(zx::parse_dotted(kNetmask, netmask).value_or(0));
}

extern "C" int32_t zxnet_api_getGatewayByNetmask(const char* ip, const char* netmask, char* network,
                                                 char* gateway) {
    const std::optional<Network> found = parse_network(ip, netmask);
    if (!found) {
        return 0;
    }
    const std::uint8_t a = zx::octet(found->ip, 0);
    const std::uint8_t b = zx::octet(found->ip, 1);
    const std::uint8_t c = zx::octet(found->ip, 2);
    const std::uint8_t d = zx::octet(found->ip, 3);
    if (network != nullptr) {
        // There are never more than 32. This tells the compiler so.
        const int bits = std::min(count_bits(found->netmask), 32);
        std::snprintf(network, ZXNET_NETWORK_TEXT_SIZE, "%d.%d.%d.%d/%d", a, b, c, d, bits);
    }
    if (gateway == nullptr) {
        return 0;
    }
    return std::snprintf(gateway, ZXNET_IP_TEXT_SIZE, "%d.%d.%d.%d", a, b, c, d + 1);
}

extern "C" int32_t zxnet_api_subnet(const char* ip, const char* netmask, char* out) {
    const std::optional<Network> found = parse_network(ip, netmask);
    return found && out != nullptr ? zx::net::print_over(found->ip, out) : 0;
}
