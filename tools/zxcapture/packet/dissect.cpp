#include <pcap/dlt.h>

#include <algorithm>

#include "common/big_endian.hpp"
#include "packet/packet.hpp"
#include "zxframe.h"

namespace capture {
namespace {

constexpr std::size_t kTypeAt = std::size_t{2} * ZXFRAME_MAC_SIZE;
constexpr std::size_t kTagSize = 4;
constexpr std::size_t kSllSize = 16;
constexpr std::size_t kSll2Size = 20;
constexpr std::size_t kLoopSize = 4;
constexpr std::size_t kArpSize = 28;
constexpr std::size_t kIpv4Size = 20;
constexpr std::size_t kIpv6Size = 40;
constexpr std::size_t kTcpSize = 20;
constexpr std::size_t kUdpSize = 8;

// The extension headers of IPv6 (RFC 8200 and those that IANA lists).
constexpr std::uint8_t kHopByHop = 0;
constexpr std::uint8_t kRouting = 43;
constexpr std::uint8_t kFragment = 44;
constexpr std::uint8_t kAuthentication = 51;
constexpr std::uint8_t kDestination = 60;
constexpr std::uint8_t kMobility = 135;
constexpr std::uint8_t kHostIdentity = 139;
constexpr std::uint8_t kShim6 = 140;

class Dissection {
public:
    explicit Dissection(const Frame& frame) : frame_(frame), bytes_(frame.bytes.data()) {}

    Packet run() {
        add_link();
        if (ends_after_frame()) {
            packet_.flaw = Flaw::malformed;
        }
        return packet_;
    }

private:
    // False, with the flaw noted, when fewer bytes were captured.
    bool has(std::size_t size) {
        const bool is_there = frame_.bytes.size() >= size;
        if (!is_there) {
            packet_.flaw = flaw_without(size);
        }
        return is_there;
    }

    // The flaw of a header that was not captured: it may be too long for the whole frame, too.
    [[nodiscard]] Flaw flaw_without(std::size_t needed) const {
        return needed > frame_.length ? Flaw::malformed : Flaw::truncated;
    }

    void add_link() {
        switch (frame_.link) {
            case DLT_EN10MB:
                add_ethernet();
                break;
            case DLT_LINUX_SLL:
                add_cooked(kSllSize, kSllSize - 2);
                break;
            case DLT_LINUX_SLL2:
                add_cooked(kSll2Size, 0);
                break;
            case DLT_NULL:
            case DLT_LOOP:
                add_loop();
                break;
            default:
                add_ip_alone();
        }
    }

    void add_ethernet() {
        if (has(ZXFRAME_ETHERNET_SIZE)) {
            packet_.has_macs = true;
            packet_.depth = Depth::link;
            add_type(tools::load_be16(bytes_ + kTypeAt), ZXFRAME_ETHERNET_SIZE);
        }
    }

    // The header that Linux writes in place of any other.
    void add_cooked(std::size_t size, std::size_t type_at) {
        if (has(size)) {
            packet_.depth = Depth::link;
            add_type(tools::load_be16(bytes_ + type_at), size);
        }
    }

    // The address family in the order of the machine that captured, which is below 256; or flags,
    // and an EtherType.
    void add_loop() {
        if (has(kLoopSize)) {
            packet_.depth = Depth::link;
            const std::uint32_t family = tools::load_be32(bytes_);
            const std::uint32_t swapped = __builtin_bswap32(family);
            add_type(family <= UINT8_MAX    ? type_of_family(family)
                     : swapped <= UINT8_MAX ? type_of_family(swapped)
                                            : tools::load_be16(bytes_ + 2),
                     kLoopSize);
        }
    }

    static std::uint16_t type_of_family(std::uint32_t family) {
        switch (family) {
            case 2:
                return kTypeIpv4;
            case 10:  // AF_INET6 of Linux; then of NetBSD, FreeBSD, macOS and Windows
            case 24:
            case 28:
            case 30:
            case 23:
                return kTypeIpv6;
            default:
                return kTypeNone;
        }
    }

    // An IP packet without any header before it.
    void add_ip_alone() {
        if (has(1)) {
            packet_.depth = Depth::link;
            const unsigned version = bytes_[0] / 16U;
            if (version == 4 || version == 6) {
                add_type(version == 4 ? kTypeIpv4 : kTypeIpv6, 0);
            } else {
                packet_.flaw = Flaw::malformed;
            }
        }
    }

    void add_type(std::uint16_t type, std::size_t at) {
        packet_.type = type;
        while (packet_.type == kTypeVlan || packet_.type == kTypeServiceVlan ||
               packet_.type == kTypeOldServiceVlan) {
            if (!has(at + kTagSize)) {
                return;
            }
            if (packet_.tag_count == kMostTags) {
                packet_.flaw = Flaw::malformed;
                return;
            }
            packet_.tags[packet_.tag_count++] = {packet_.type, tools::load_be16(bytes_ + at)};
            packet_.type = tools::load_be16(bytes_ + at + 2);
            at += kTagSize;
        }
        packet_.network_at = static_cast<std::uint32_t>(at);
        if (packet_.type == kTypeIpv4) {
            add_ipv4();
        } else if (packet_.type == kTypeIpv6) {
            add_ipv6();
        } else if (packet_.type == kTypeArp && has(at + kArpSize)) {
            packet_.depth = Depth::network;
            packet_.network = Network::arp;
        }
    }

    // Whether the length in the header of IP is a lie.
    [[nodiscard]] bool ends_after_frame() const { return packet_.network_end > frame_.length; }

    // The length is 0 in a packet that the interface will segment.
    void set_end(std::size_t length) {
        packet_.network_end =
            length == 0 ? frame_.length : static_cast<std::uint32_t>(packet_.network_at + length);
    }

    void add_ipv4() {
        const std::size_t at = packet_.network_at;
        if (!has(at + kIpv4Size)) {
            return;
        }
        const std::uint8_t* const header = bytes_ + at;
        const std::size_t size = std::size_t{4} * (header[0] % 16);
        const std::uint16_t fragment = tools::load_be16(header + 6);
        packet_.depth = Depth::network;
        packet_.network = Network::ipv4;
        packet_.hops = header[8];
        packet_.protocol = header[9];
        packet_.source = address_at(header + 12, false);
        packet_.dest = address_at(header + 16, false);
        packet_.dont_fragment = (fragment & 0x4000U) != 0;
        packet_.fragment_id = tools::load_be16(header + 4);
        set_fragment(8U * (fragment & 0x1FFFU), (fragment & 0x2000U) != 0);
        packet_.transport_at = static_cast<std::uint32_t>(at + size);
        set_end(tools::load_be16(header + 2));
        if (header[0] / 16U != 4 || size < kIpv4Size) {
            packet_.flaw = Flaw::malformed;
        } else {
            add_protocol();
        }
    }

    void set_fragment(std::uint32_t offset, bool has_more) {
        packet_.fragment_offset = offset;
        packet_.more_fragments = has_more;
        packet_.later_fragment = offset != 0;
        packet_.first_fragment = offset == 0 && has_more;
    }

    void add_ipv6() {
        const std::size_t at = packet_.network_at;
        if (!has(at + kIpv6Size)) {
            return;
        }
        const std::uint8_t* const header = bytes_ + at;
        packet_.depth = Depth::network;
        packet_.network = Network::ipv6;
        packet_.protocol = header[6];
        packet_.hops = header[7];
        packet_.source = address_at(header + 8, true);
        packet_.dest = address_at(header + 24, true);
        packet_.transport_at = static_cast<std::uint32_t>(at + kIpv6Size);
        const std::size_t payload = tools::load_be16(header + 4);
        set_end(payload == 0 ? 0 : kIpv6Size + payload);
        if (header[0] / 16U != 6) {
            packet_.flaw = Flaw::malformed;
        } else if (skip_extensions()) {
            add_protocol();
        }
    }

    // False: they end too early, or there are too many.
    bool skip_extensions() {
        for (std::size_t count = 0; is_extension(packet_.protocol); ++count) {
            const std::size_t at = packet_.transport_at;
            if (count == kMostExtensions || at + 8 > packet_.network_end) {
                packet_.flaw = Flaw::malformed;
                return false;
            }
            if (!has(at + 8)) {
                return false;
            }
            const std::uint8_t* const header = bytes_ + at;
            packet_.is_routed |= packet_.protocol == kRouting && header[3] != 0;
            std::size_t size = 8 + std::size_t{8} * header[1];
            if (packet_.protocol == kFragment) {
                const std::uint16_t fragment = tools::load_be16(header + 2);
                size = 8;
                packet_.fragment_id = tools::load_be32(header + 4);
                set_fragment(fragment & 0xFFF8U, (fragment & 1U) != 0);
            } else if (packet_.protocol == kAuthentication) {
                size = 8 + std::size_t{4} * header[1];
            }
            packet_.protocol = header[0];
            packet_.transport_at = static_cast<std::uint32_t>(at + size);
            if (packet_.later_fragment) {
                return true;  // what follows is not the header that it names
            }
        }
        return true;
    }

    static bool is_extension(std::uint8_t protocol) {
        constexpr std::uint8_t kAll[] = {kHopByHop,    kRouting,  kFragment,     kAuthentication,
                                         kDestination, kMobility, kHostIdentity, kShim6};
        return std::ranges::find(kAll, protocol) != std::end(kAll);
    }

    void add_protocol() {
        const std::size_t at = packet_.transport_at;
        if (at > packet_.network_end) {
            packet_.flaw = packet_.later_fragment ? Flaw::none : Flaw::malformed;
        } else if (!packet_.later_fragment) {
            switch (packet_.protocol) {
                case kProtocolTcp:
                    add_tcp_or_udp(Transport::tcp, kTcpSize);
                    break;
                case kProtocolUdp:
                    add_tcp_or_udp(Transport::udp, kUdpSize);
                    break;
                case kProtocolIcmp:
                    add_message(Transport::icmp, Network::ipv4, 4);
                    break;
                case kProtocolIgmp:
                    add_message(Transport::igmp, Network::ipv4, 8);
                    break;
                case kProtocolIcmpV6:
                    add_message(Transport::icmpv6, Network::ipv6, 4);
                    break;
                default:
                    break;
            }
        }
    }

    // The flaw of a header that needs the frame up to `needed`.
    [[nodiscard]] Flaw flaw_before(std::size_t needed) const {
        return needed > packet_.network_end   ? Flaw::malformed
               : needed > frame_.bytes.size() ? flaw_without(needed)
                                              : Flaw::none;
    }

    void add_message(Transport kind, Network network, std::size_t size) {
        if (packet_.network != network) {
            return;
        }
        packet_.flaw = flaw_before(packet_.transport_at + size);
        if (packet_.flaw == Flaw::none) {
            packet_.depth = Depth::transport;
            packet_.transport = kind;
        }
    }

    void add_tcp_or_udp(Transport kind, std::size_t fixed) {
        const std::size_t at = packet_.transport_at;
        const std::size_t end = packet_.network_end;
        packet_.flaw = flaw_before(at + fixed);
        if (packet_.flaw != Flaw::none) {
            return;
        }
        packet_.depth = Depth::transport;
        packet_.transport = kind;
        const std::uint8_t* const header = bytes_ + at;
        packet_.source_port = tools::load_be16(header);
        packet_.dest_port = tools::load_be16(header + 2);
        const bool is_tcp = kind == Transport::tcp;
        const std::size_t size = is_tcp ? std::size_t{4} * (header[12] / 16) : fixed;
        const std::size_t udp_size = is_tcp ? size : tools::load_be16(header + 4);
        const bool udp_ends_outside = at + udp_size > end && !packet_.first_fragment;
        packet_.flaw = size < fixed || udp_size < fixed || udp_ends_outside || ends_after_frame()
                           ? Flaw::malformed
                           : flaw_before(at + size);
        if (packet_.flaw != Flaw::malformed) {
            const std::size_t whole = is_tcp ? end - at : std::min(udp_size, end - at);
            packet_.payload_at = static_cast<std::uint32_t>(at + size);
            packet_.payload = static_cast<std::uint32_t>(whole - size);
        }
    }

    const Frame& frame_;
    const std::uint8_t* const bytes_;
    Packet packet_;
};

}  // namespace

Packet dissect(const Frame& frame) {
    return Dissection(frame).run();
}

}  // namespace capture
