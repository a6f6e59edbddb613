// The filters by address, protocol and port. They see through VLAN tags and the extension headers
// of IPv6.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "packet/packet.hpp"
#include "zxframe.h"

namespace capture {

// A frame passes if it meets all of these; of a list of addresses, it must meet one.
struct Wanted {
    std::vector<std::string> mac{};
    std::vector<std::string> source_mac{};
    std::vector<std::string> dest_mac{};
    std::string protocol{};
    std::vector<std::string> ip{};
    std::vector<std::string> source_ip{};
    std::vector<std::string> dest_ip{};
    std::int32_t port = 0;
    std::int32_t source_port = 0;
    std::int32_t dest_port = 0;
};

// The texts are as check_mac(), check_ip() and protocol_numbers() know them.
class Filter {
public:
    explicit Filter(const Wanted& wanted);

    [[nodiscard]] bool passes(const Frame& frame, const Packet& packet) const;

private:
    using Mac = std::array<std::uint8_t, ZXFRAME_MAC_SIZE>;

    // What both ends, the source and the destination must be; an empty list is met by all.
    template <typename Value>
    struct Ends {
        std::vector<Value> either;
        std::vector<Value> source;
        std::vector<Value> dest;
        [[nodiscard]] bool empty() const {
            return either.empty() && source.empty() && dest.empty();
        }
        [[nodiscard]] bool admit(const Value& from, const Value& to) const;
    };

    Ends<Mac> macs_;
    Ends<Address> addresses_;
    Ends<std::uint16_t> ports_;
    std::vector<std::uint8_t> protocols_;
};

// False: the text is no such address.
[[nodiscard]] bool check_mac(const std::string& text);
[[nodiscard]] bool check_ip(const std::string& text);

// The names of the protocols that a filter knows.
[[nodiscard]] const std::vector<std::string>& filtered_protocols();

}  // namespace capture
