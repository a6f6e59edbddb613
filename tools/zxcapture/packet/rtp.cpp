#include "packet/rtp.hpp"

#include <algorithm>

namespace capture {
namespace {

constexpr std::uint16_t kFirstUserPort = 1024;
constexpr std::uint8_t kFirstDynamicType = 96;

struct PayloadName {
    std::uint8_t type;
    std::string_view name;
};

// RFC 3551, sections 4 and 5.
constexpr PayloadName kPayloadNames[] = {
    {0, "PCMU"},  {3, "GSM"},   {4, "G723"},  {5, "DVI4"},  {6, "DVI4"},   {7, "LPC"},
    {8, "PCMA"},  {9, "G722"},  {10, "L16"},  {11, "L16"},  {12, "QCELP"}, {13, "CN"},
    {14, "MPA"},  {15, "G728"}, {16, "DVI4"}, {17, "DVI4"}, {18, "G729"},  {25, "CelB"},
    {26, "JPEG"}, {28, "nv"},   {31, "H261"}, {32, "MPV"},  {33, "MP2T"},  {34, "H263"}};

}  // namespace

std::optional<Rtp> read_rtp(const Frame& frame, const Packet& packet) {
    if (packet.depth != Depth::transport || packet.transport != Transport::udp) {
        return std::nullopt;
    }
    const std::span<const std::uint8_t> payload = captured_payload(frame, packet);
    return tools::parse_rtp(payload, packet.payload - payload.size());
}

std::optional<Rtp> looks_like_rtp(const Frame& frame, const Packet& packet) {
    if (packet.source_port < kFirstUserPort || packet.dest_port < kFirstUserPort) {
        return std::nullopt;
    }
    const std::optional<Rtp> rtp = read_rtp(frame, packet);
    const bool is_known = rtp && (rtp->payload_type >= kFirstDynamicType ||
                                  !rtp_payload_name(rtp->payload_type).empty());
    return is_known ? rtp : std::nullopt;
}

std::string_view rtp_payload_name(std::uint8_t type) {
    const auto* const at = std::ranges::find(kPayloadNames, type, &PayloadName::type);
    return at == std::end(kPayloadNames) ? std::string_view() : at->name;
}

}  // namespace capture
