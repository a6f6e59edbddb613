// A flow: the datagrams of UDP from one place to another, in one VLAN.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "packet/rtp.hpp"
#include "streams/gaps.hpp"
#include "streams/rtp_source.hpp"
#include "streams/transport_stream.hpp"

namespace capture {

// The VLANs of the two outermost tags, the outermost first. A third is only counted.
struct Vlans {
    std::uint8_t count = 0;
    std::array<std::uint16_t, 2> ids{};
    auto operator<=>(const Vlans&) const = default;
};
[[nodiscard]] Vlans vlans_of(const Packet& packet);
[[nodiscard]] std::string text_of(const Vlans& vlans);  // "10", "10.20"; "-": none

[[nodiscard]] std::string text_of(const Address& address);

// Two addresses and what else there is, as words that tell them apart.
using EndsKey = std::array<std::uint64_t, 5>;
[[nodiscard]] EndsKey key_of(const Address& one, const Address& other, const Vlans& vlans,
                             std::uint16_t one_port, std::uint16_t other_port);

// The sources of RTP of all flows: the number of the flow and the SSRC are the key.
using RtpSources = BoundedMap<1, RtpSource>;
[[nodiscard]] inline RtpSources::Key rtp_key(std::uint32_t flow, std::uint32_t sender) {
    return {std::uint64_t{flow} << 32U | sender};
}

// What the flows share.
struct Parts {
    RtpSources& sources;
    Pids& pids;
    const RtpClocks& clocks;
};

class Flow {
public:
    Flow() = default;
    Flow(const Packet& packet, std::uint32_t number);

    void add(const Frame& frame, const Packet& packet, std::int64_t now_us, const Parts& parts);

    // The rates are those of the packets since the last call.
    void end_second(double seconds);

    [[nodiscard]] std::uint32_t number() const { return number_; }
    [[nodiscard]] const Vlans& vlans() const { return vlans_; }
    [[nodiscard]] const Address& source() const { return source_; }
    [[nodiscard]] const Address& dest() const { return dest_; }
    [[nodiscard]] std::uint16_t source_port() const { return source_port_; }
    [[nodiscard]] std::uint16_t dest_port() const { return dest_port_; }
    [[nodiscard]] const char* kind() const;  // "UDP", "RTP", "TS" or "RTP+TS"

    [[nodiscard]] std::uint64_t packets() const { return packets_; }
    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }  // of whole frames
    [[nodiscard]] std::uint64_t payload_bytes() const { return payload_bytes_; }
    [[nodiscard]] std::int64_t first_us() const { return first_us_; }
    [[nodiscard]] std::int64_t last_us() const { return last_us_; }
    [[nodiscard]] double bits_per_s() const { return bits_per_s_; }
    [[nodiscard]] double packets_per_s() const { return packets_per_s_; }
    [[nodiscard]] double mean_bits_per_s() const;
    // False: it was idle in the last second and in the one before.
    [[nodiscard]] bool is_active() const { return idle_seconds_ < 2; }
    [[nodiscard]] const Gaps& gaps() const { return gaps_; }

    [[nodiscard]] bool is_rtp() const { return is_rtp_; }
    // Datagrams of an RTP flow that are something else, such as RTCP.
    [[nodiscard]] std::uint64_t other_packets() const { return other_packets_; }
    [[nodiscard]] const TransportStream& transport_stream() const { return stream_; }

private:
    void add_payload(const Frame& frame, const Packet& packet, std::int64_t now_us,
                     const Parts& parts);
    void add_rtp(const RtpHead& head, std::int64_t now_us, const Parts& parts);
    [[nodiscard]] bool await(const RtpHead& head, std::int64_t now_us);
    void feed(const RtpHead& head, std::int64_t now_us, const Parts& parts) const;

    std::uint32_t number_ = 0;
    Vlans vlans_;
    Address source_;
    Address dest_;
    std::uint16_t source_port_ = 0;
    std::uint16_t dest_port_ = 0;

    std::uint64_t packets_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t payload_bytes_ = 0;
    std::int64_t first_us_ = 0;
    std::int64_t last_us_ = 0;
    Gaps gaps_;

    std::uint64_t packets_before_ = 0;  // at the end of the last second
    std::uint64_t bytes_before_ = 0;
    double bits_per_s_ = 0;
    double packets_per_s_ = 0;
    unsigned idle_seconds_ = 0;

    // Nothing in a datagram says for certain that it is RTP. So the last one that looks like it
    // waits for another from the same source, with a number close to its own. Several sources may
    // take turns.
    struct Waiting {
        RtpHead head;
        std::int64_t us = 0;
        std::uint32_t count = 0;  // how often it has come
    };
    static constexpr std::size_t kMostWaiting = 4;
    bool is_rtp_ = false;
    std::array<Waiting, kMostWaiting> waiting_{};  // the newest source first
    std::uint64_t other_packets_ = 0;

    TransportStream stream_;
};

}  // namespace capture
