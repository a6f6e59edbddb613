#include "filter/filter.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace capture {
namespace {

using Mac = std::array<std::uint8_t, ZXFRAME_MAC_SIZE>;

constexpr std::pair<const char*, std::uint8_t> kProtocols[] = {{"tcp", kProtocolTcp},
                                                               {"udp", kProtocolUdp},
                                                               {"icmp", kProtocolIcmp},
                                                               {"icmpv6", kProtocolIcmpV6},
                                                               {"igmp", kProtocolIgmp}};

bool read_mac(const std::string& text, Mac& mac) {
    if (text.size() != ZXFRAME_MAC_TEXT_SIZE - 1) {
        return false;
    }
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const char* const digits = text.data() + 3 * i;
        if (std::from_chars(digits, digits + 2, mac[i], 16).ptr != digits + 2 ||
            (i + 1 < mac.size() && digits[2] != ':')) {
            return false;
        }
    }
    return true;
}

bool read_ip(const std::string& text, Address& address) {
    address.is_ipv6 = text.find(':') != std::string::npos;
    return inet_pton(address.is_ipv6 ? AF_INET6 : AF_INET, text.c_str(), address.bytes.data()) == 1;
}

template <typename Value>
std::vector<Value> read_all(const std::vector<std::string>& texts,
                            bool (*read)(const std::string&, Value&)) {
    std::vector<Value> values(texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        read(texts[i], values[i]);
    }
    return values;
}

std::vector<std::uint16_t> port(std::int32_t number) {
    return number == 0 ? std::vector<std::uint16_t>()
                       : std::vector{static_cast<std::uint16_t>(number)};
}

Mac mac_at(const Frame& frame, std::size_t at) {
    Mac mac;
    std::copy_n(frame.bytes.data() + at, mac.size(), mac.begin());
    return mac;
}

}  // namespace

template <typename Value>
bool Filter::Ends<Value>::admit(const Value& from, const Value& to) const {
    const auto has = [](const std::vector<Value>& all, const Value& value) {
        return std::ranges::find(all, value) != all.end();
    };
    return (either.empty() || has(either, from) || has(either, to)) &&
           (source.empty() || has(source, from)) && (dest.empty() || has(dest, to));
}

Filter::Filter(const Wanted& wanted)
    : macs_{read_all(wanted.mac, read_mac), read_all(wanted.source_mac, read_mac),
            read_all(wanted.dest_mac, read_mac)},
      addresses_{read_all(wanted.ip, read_ip), read_all(wanted.source_ip, read_ip),
                 read_all(wanted.dest_ip, read_ip)},
      ports_{port(wanted.port), port(wanted.source_port), port(wanted.dest_port)} {
    for (const auto& [name, number] : kProtocols) {
        if (wanted.protocol == name) {
            protocols_.push_back(number);
        }
    }
}

bool Filter::passes(const Frame& frame, const Packet& packet) const {
    const bool is_ip = packet.network == Network::ipv4 || packet.network == Network::ipv6;
    return (macs_.empty() ||
            (packet.has_macs && macs_.admit(mac_at(frame, ZXFRAME_MAC_SIZE), mac_at(frame, 0)))) &&
           (addresses_.empty() || (is_ip && addresses_.admit(packet.source, packet.dest))) &&
           (protocols_.empty() ||
            (is_ip && std::ranges::find(protocols_, packet.protocol) != protocols_.end())) &&
           (ports_.empty() ||
            (packet.has_ports() && ports_.admit(packet.source_port, packet.dest_port)));
}

bool check_mac(const std::string& text) {
    Mac mac;
    return read_mac(text, mac);
}

bool check_ip(const std::string& text) {
    Address address;
    return read_ip(text, address);
}

const std::vector<std::string>& filtered_protocols() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const auto& [name, number] : kProtocols) {
            all.emplace_back(name);
        }
        return all;
    }();
    return names;
}

}  // namespace capture
