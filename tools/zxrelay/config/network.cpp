#include "config/network.hpp"

#include <arpa/inet.h>

#include <charconv>

#include "common/failure.hpp"

namespace relay {

Network::Bits Network::bits_of(const std::string& address) {
    Bits bits;
    for (const int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, address.c_str(), bits.bytes.data()) == 1) {
            bits.family = family;
            break;
        }
    }
    return bits;
}

bool Network::contains(const std::string& address) const {
    const Bits other = bits_of(address);
    if (other.family != base_.family) {
        return false;
    }
    for (unsigned bit = 0; bit < size_; ++bit) {
        const unsigned differ = base_.bytes[bit / 8] ^ other.bytes[bit / 8];
        if ((differ & (0x80U >> bit % 8)) != 0) {
            return false;
        }
    }
    return true;
}

Network parse_network(const std::string& text) {
    const std::size_t slash = text.find('/');
    Network network;
    network.base_ = Network::bits_of(text.substr(0, slash));
    const unsigned most = network.base_.family == AF_INET ? 32 : 128;
    network.size_ = most;
    bool is_good = network.base_.family != AF_UNSPEC;
    if (slash != std::string::npos) {
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, network.size_);
        is_good = is_good && error == std::errc() && stop == end && network.size_ <= most;
    }
    if (!is_good) {
        throw tools::Failure("'" + text + "' is not a network such as 239.0.0.0/8");
    }
    return network;
}

}  // namespace relay
