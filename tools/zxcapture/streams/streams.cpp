#include "streams/streams.hpp"

namespace capture {

void Streams::add(const Frame& frame, const Packet& packet, std::int64_t now_us) {
    now_us_ = now_us;
    if (packet.depth != Depth::transport) {
        later_fragments_ += packet.later_fragment && packet.protocol == kProtocolUdp ? 1U : 0U;
        return;
    }
    if (packet.transport == Transport::igmp || packet.transport == Transport::icmpv6) {
        members_.add(frame, packet, now_us);
    }
    if (packet.transport != Transport::udp) {
        return;
    }
    const EndsKey key =
        key_of(packet.source, packet.dest, vlans_of(packet), packet.source_port, packet.dest_port);
    Flows::Entry* entry = flows_.find(key);
    if (entry == nullptr) {
        entry = &flows_.make(
            key, [&](const Flows::Entry& old) { forgotten_packets_ += old.value.packets(); });
        entry->value = Flow(packet, next_number_++);
    }
    entry->value.add(frame, packet, now_us, {sources_, pids_, clocks_});
}

void Streams::end_second(std::int64_t now_us, double seconds) {
    now_us_ = now_us;
    for (Flows::Entry& entry : flows_.entries()) {
        entry.value.end_second(seconds);
    }
}

}  // namespace capture
