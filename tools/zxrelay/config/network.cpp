#include "config/network.hpp"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "common/failure.hpp"
#include "common/number.hpp"

namespace relay {
namespace {

constexpr unsigned kBits = 128;
constexpr unsigned kBitsBeforeIpv4 = 96;
constexpr std::array<std::uint8_t, 12> kBeforeIpv4{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

Address from_ipv4(const in_addr& address) {
    Address all{};
    std::copy(kBeforeIpv4.begin(), kBeforeIpv4.end(), all.begin());
    std::memcpy(all.data() + kBeforeIpv4.size(), &address, sizeof address);
    return all;
}

Address from_ipv6(const in6_addr& address) {
    Address all;
    std::memcpy(all.data(), &address, all.size());
    return all;
}

}  // namespace

Address address_of(const sockaddr_storage& socket) {
    if (socket.ss_family == AF_INET) {
        return from_ipv4(reinterpret_cast<const sockaddr_in&>(socket).sin_addr);
    }
    if (socket.ss_family == AF_INET6) {
        return from_ipv6(reinterpret_cast<const sockaddr_in6&>(socket).sin6_addr);
    }
    return {};
}

bool Network::contains(const Address& other) const {
    const std::size_t whole = prefix / 8;
    const unsigned rest = prefix % 8;
    const auto [mine, its] = std::mismatch(
        address.begin(), address.begin() + static_cast<std::ptrdiff_t>(whole), other.begin());
    const bool are_equal = its == other.begin() + static_cast<std::ptrdiff_t>(whole);
    return are_equal && (rest == 0 || (*mine ^ *its) >> (8 - rest) == 0);
}

Network parse_network(const std::string& text) {
    const std::size_t slash = text.find('/');
    const std::string address = text.substr(0, slash);
    in_addr ipv4;
    in6_addr ipv6;
    Network network{};
    if (inet_pton(AF_INET, address.c_str(), &ipv4) == 1) {
        network = {from_ipv4(ipv4), kBitsBeforeIpv4};
    } else if (inet_pton(AF_INET6, address.c_str(), &ipv6) == 1) {
        network = {from_ipv6(ipv6), 0};
    } else {
        throw tools::Failure("'" + text + "' is not a network such as 10.0.0.0/8 or 2001:db8::/32");
    }
    const unsigned largest = kBits - network.prefix;
    const auto prefix =
        slash == std::string::npos ? largest : tools::parse_number(text.substr(slash + 1));
    if (!prefix || *prefix > largest) {
        throw tools::Failure("'" + text + "' must end in a number from 0 to " +
                             std::to_string(largest));
    }
    network.prefix += static_cast<unsigned>(*prefix);
    return network;
}

Network parse_group_network(const std::string& text) {
    const Network network = parse_network(text);
    for (const char* const groups : {"224.0.0.0/4", "ff00::/8"}) {
        const Network all = parse_network(groups);
        if (all.contains(network.address) || network.contains(all.address)) {
            return network;
        }
    }
    throw tools::Failure("'" + text + "' contains no multicast address");
}

void require_interface(const std::string& name) {
    if (!name.empty() && if_nametoindex(name.c_str()) == 0) {
        throw tools::Failure("there is no network interface " + name);
    }
}

bool contains(const std::vector<Network>& networks, const Address& address) {
    return std::any_of(networks.begin(), networks.end(),
                       [&](const Network& network) { return network.contains(address); });
}

}  // namespace relay
