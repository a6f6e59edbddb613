// Networks of addresses.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>

namespace relay {

// ADDRESS/BITS or an address alone, IPv4 or IPv6.
class Network {
public:
    // True if the first bits of this address, in digits, are those of the network.
    [[nodiscard]] bool contains(const std::string& address) const;

private:
    friend Network parse_network(const std::string& text);
    struct Bits {
        int family = AF_UNSPEC;
        std::array<std::uint8_t, 16> bytes{};
    };
    static Bits bits_of(const std::string& address);

    Bits base_;
    unsigned size_ = 0;
};

// Throws a Failure.
Network parse_network(const std::string& text);

}  // namespace relay
