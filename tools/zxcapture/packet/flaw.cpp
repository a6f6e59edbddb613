#include "packet/flaw.hpp"

#include <algorithm>

#include "packet/groups.hpp"
#include "packet/tcp.hpp"

namespace capture {
namespace {

using Bytes = std::span<const std::uint8_t>;

// The messages of ICMPv6 that are longer than its header.
struct Message {
    std::uint8_t type;
    std::uint8_t size;  // without options
    bool has_options;
};
constexpr Message kMessages[] = {{130, 24, false}, {131, 24, false}, {132, 24, false},  // MLD
                                 {133, 8, true},   {134, 16, true},  {135, 24, true},
                                 {136, 24, true},  // RFC 4861
                                 {137, 40, true},  {143, 8, false}};

// `whole` is the size of the message, of which `bytes` were captured.
Flaw flaw_of_message(Bytes bytes, std::size_t whole) {
    constexpr std::size_t kUnit = 8;  // of an option's length
    const auto flaw_before = [&](std::size_t needed) {
        return needed > whole          ? Flaw::malformed
               : needed > bytes.size() ? Flaw::truncated
                                       : Flaw::none;
    };
    const auto* const message = std::ranges::find(kMessages, bytes[0], &Message::type);
    if (message == std::end(kMessages)) {
        return Flaw::none;
    }
    std::size_t at = message->size;
    Flaw flaw = flaw_before(at);
    while (message->has_options && flaw == Flaw::none && at < whole) {
        flaw = flaw_before(at + 2);
        if (flaw == Flaw::none) {
            const std::size_t size = kUnit * bytes[at + 1];
            at += size;
            flaw = size == 0 ? Flaw::malformed : flaw_before(at);
        }
    }
    return flaw;
}

Flaw flaw_of_groups(const Frame& frame, const Packet& packet) {
    std::optional<Groups> groups = read_groups(frame, packet);
    if (!groups) {
        return Flaw::none;
    }
    while (groups->next()) {
    }
    return !groups->is_cut()                         ? Flaw::none
           : packet.network_end > frame.bytes.size() ? Flaw::truncated
                                                     : Flaw::malformed;
}

}  // namespace

Flaw flaw_of(const Frame& frame, const Packet& packet) {
    if (packet.flaw != Flaw::none) {
        return packet.flaw;
    }
    if (packet.transport == Transport::tcp) {
        return read_tcp_options(frame, packet).is_malformed ? Flaw::malformed : Flaw::none;
    }
    if (packet.first_fragment) {
        return Flaw::none;  // the rest of the message is in the others
    }
    if (packet.transport == Transport::icmpv6) {
        const Flaw flaw = flaw_of_message(captured_transport(frame, packet),
                                          packet.network_end - packet.transport_at);
        return flaw != Flaw::none ? flaw : flaw_of_groups(frame, packet);
    }
    return packet.transport == Transport::igmp ? flaw_of_groups(frame, packet) : Flaw::none;
}

}  // namespace capture
