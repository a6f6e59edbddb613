// RTP in a datagram of UDP.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "common/rtp.hpp"
#include "packet/packet.hpp"

namespace capture {

using tools::Rtp;

// Reads the payload of UDP as RTP. Returns nothing if its lengths do not fit the datagram, or the
// header was not captured.
[[nodiscard]] std::optional<Rtp> read_rtp(const Frame& frame, const Packet& packet);

// The same if the datagram probably is RTP: a payload type that is assigned or dynamic (RFC 3551),
// and no port below 1024. Nothing in a datagram says for certain that it is RTP, so whoever must be
// sure compares the sequence numbers of several.
[[nodiscard]] std::optional<Rtp> looks_like_rtp(const Frame& frame, const Packet& packet);

// The name of a payload type that RFC 3551 assigns, such as "MP2T"; empty for others.
[[nodiscard]] std::string_view rtp_payload_name(std::uint8_t type);

}  // namespace capture
