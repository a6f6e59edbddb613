#include "packet/tcp.hpp"

#include <algorithm>

#include "common/big_endian.hpp"

namespace capture {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kFixedSize = 20;

// The kinds of options.
constexpr std::uint8_t kEnd = 0;
constexpr std::uint8_t kNothing = 1;
constexpr std::uint8_t kSegmentSize = 2;
constexpr std::uint8_t kWindowShift = 3;
constexpr std::uint8_t kSackPermitted = 4;
constexpr std::uint8_t kSack = 5;
constexpr std::uint8_t kTimestamps = 8;

void add_sacks(TcpOptions& options, Bytes ranges) {
    constexpr std::size_t kRange = 8;
    options.sack_count = 0;
    for (; ranges.size() >= kRange && options.sack_count < kMostSacks;
         ranges = ranges.subspan(kRange)) {
        options.sacks.at(options.sack_count++) = {tools::load_be32(&ranges[0]),
                                                  tools::load_be32(&ranges[4])};
    }
}

// `value` is what follows the kind and the length. False: it has a wrong length.
bool add_option(TcpOptions& options, std::uint8_t kind, Bytes value) {
    switch (kind) {
        case kSegmentSize:
            if (value.size() == 2) {
                options.segment_size = tools::load_be16(value.data());
            }
            return value.size() == 2;
        case kWindowShift:
            if (value.size() == 1) {
                options.window_shift = value[0];
            }
            return value.size() == 1;
        case kSackPermitted:
            options.sack_permitted = value.empty();
            return value.empty();
        case kSack:
            add_sacks(options, value);
            return !value.empty() && value.size() % 8 == 0;
        case kTimestamps:
            if (value.size() == 8) {
                options.timestamps = {tools::load_be32(&value[0]), tools::load_be32(&value[4])};
            }
            return value.size() == 8;
        default:
            return true;
    }
}

}  // namespace

std::optional<Tcp> read_tcp(const Frame& frame, const Packet& packet) {
    const Bytes bytes = captured_transport(frame, packet);
    if (packet.transport != Transport::tcp || bytes.size() < kFixedSize) {
        return std::nullopt;
    }
    constexpr std::uint16_t kFlags = 0x1FF;
    return Tcp{.sequence = tools::load_be32(&bytes[4]),
               .acknowledgment = tools::load_be32(&bytes[8]),
               .flags = static_cast<std::uint16_t>(tools::load_be16(&bytes[12]) & kFlags),
               .window = tools::load_be16(&bytes[14]),
               .checksum = tools::load_be16(&bytes[16]),
               .urgent = tools::load_be16(&bytes[18])};
}

TcpOptions read_tcp_options(const Frame& frame, const Packet& packet) {
    TcpOptions options;
    const Bytes bytes = captured_transport(frame, packet);
    if (packet.transport != Transport::tcp || bytes.size() < kFixedSize) {
        return options;
    }
    const std::size_t size = std::size_t{4} * (bytes[12] / 16U);
    Bytes rest = bytes.first(std::clamp(size, kFixedSize, bytes.size())).subspan(kFixedSize);
    while (!rest.empty() && rest[0] != kEnd) {
        std::size_t taken = 1;
        if (rest[0] != kNothing) {
            taken = rest.size() < 2 ? 0 : rest[1];
            if (taken < 2 || taken > rest.size()) {
                options.is_malformed = packet.flaw != Flaw::truncated;
                return options;
            }
            options.is_malformed |= !add_option(options, rest[0], rest.subspan(2, taken - 2));
        }
        rest = rest.subspan(taken);
    }
    return options;
}

}  // namespace capture
