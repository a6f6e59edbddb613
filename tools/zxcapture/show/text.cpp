#include "show/text.hpp"

#include <arpa/inet.h>

#include "zxframe.h"

namespace capture {

Text& Text::operator<<(Mac mac) {
    constexpr char kDigits[] = "0123456789abcdef";
    char text[ZXFRAME_MAC_TEXT_SIZE];
    for (std::size_t i = 0; i < ZXFRAME_MAC_SIZE; ++i) {
        text[3 * i] = kDigits[mac.bytes[i] / 16U];
        text[3 * i + 1] = kDigits[mac.bytes[i] % 16U];
        text[3 * i + 2] = ':';
    }
    text_.append(text, ZXFRAME_MAC_TEXT_SIZE - 1);
    return *this;
}

Text& Text::operator<<(const Address& address) {
    const auto& bytes = address.bytes;
    if (!address.is_ipv6) {
        return *this << bytes[0] << '.' << bytes[1] << '.' << bytes[2] << '.' << bytes[3];
    }
    char text[INET6_ADDRSTRLEN];
    return *this << inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
}

}  // namespace capture
