#include "streams/flow.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>

namespace capture {
namespace {

// RTCP on the same port (RFC 5761).
bool is_control(std::span<const std::uint8_t> payload) {
    constexpr std::uint8_t kFirst = 192;
    constexpr std::uint8_t kLast = 223;
    return payload[1] >= kFirst && payload[1] <= kLast;
}

std::optional<Rtp> rtp_of(std::span<const std::uint8_t> payload, std::size_t missing) {
    const std::optional<Rtp> rtp = tools::parse_rtp(payload, missing);
    return rtp && !is_control(payload) ? rtp : std::nullopt;
}

bool follows(const RtpHead& head, const RtpHead& before) {
    const int step = static_cast<std::int16_t>(head.sequence - before.sequence);
    constexpr int kMost = RtpSource::kLargestStep;
    return step != 0 && step > -kMost && step < kMost;
}

}  // namespace

Vlans vlans_of(const Packet& packet) {
    Vlans vlans;
    vlans.count = packet.tag_count;
    for (std::size_t i = 0; i < std::min<std::size_t>(packet.tag_count, vlans.ids.size()); ++i) {
        vlans.ids[i] = static_cast<std::uint16_t>(packet.tags[i].vlan());
    }
    return vlans;
}

std::string text_of(const Vlans& vlans) {
    if (vlans.count == 0) {
        return "-";
    }
    std::string text = std::to_string(vlans.ids[0]);
    if (vlans.count > 1) {
        text.append(1, '.').append(std::to_string(vlans.ids[1]));
    }
    return vlans.count > vlans.ids.size() ? text.append(".+") : text;
}

std::string text_of(const Address& address) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.is_ipv6 ? AF_INET6 : AF_INET, address.bytes.data(), text, sizeof text);
    return text;
}

EndsKey key_of(const Address& one, const Address& other, const Vlans& vlans, std::uint16_t one_port,
               std::uint16_t other_port) {
    EndsKey key;
    std::memcpy(&key[0], one.bytes.data(), one.bytes.size());
    std::memcpy(&key[2], other.bytes.data(), other.bytes.size());
    constexpr unsigned kVlanBits = 12;
    std::uint64_t rest = std::uint64_t{one_port} << 16U | other_port;
    for (const std::uint16_t id : vlans.ids) {
        rest = rest << kVlanBits | id;
    }
    key[4] = rest << 5U | std::uint64_t{vlans.count} << 1U | (one.is_ipv6 ? 1U : 0U);
    return key;
}

Flow::Flow(const Packet& packet, std::uint32_t number)
    : number_(number),
      vlans_(vlans_of(packet)),
      source_(packet.source),
      dest_(packet.dest),
      source_port_(packet.source_port),
      dest_port_(packet.dest_port) {}

const char* Flow::kind() const {
    const bool is_stream = stream_.is_sure();
    return is_rtp_ ? is_stream ? "RTP+TS" : "RTP" : is_stream ? "TS" : "UDP";
}

double Flow::mean_bits_per_s() const {
    const auto lasted_us = static_cast<double>(last_us_ - first_us_);
    return lasted_us > 0 ? static_cast<double>(bytes_) * 8e6 / lasted_us : 0;
}

void Flow::end_second(double seconds) {
    bits_per_s_ = static_cast<double>(bytes_ - bytes_before_) * 8 / seconds;
    packets_per_s_ = static_cast<double>(packets_ - packets_before_) / seconds;
    idle_seconds_ = packets_ == packets_before_ ? idle_seconds_ + 1 : 0;
    bytes_before_ = bytes_;
    packets_before_ = packets_;
}

void Flow::add(const Frame& frame, const Packet& packet, std::int64_t now_us, const Parts& parts) {
    if (packets_ == 0) {
        first_us_ = now_us;
    } else {
        gaps_.add(now_us - last_us_);
    }
    ++packets_;
    bytes_ += frame.length;
    payload_bytes_ += packet.payload;
    last_us_ = now_us;
    add_payload(frame, packet, now_us, parts);
}

void Flow::add_payload(const Frame& frame, const Packet& packet, std::int64_t now_us,
                       const Parts& parts) {
    std::span<const std::uint8_t> payload = captured_payload(frame, packet);
    // What other fragments have is missing: packet.payload ends with the first one.
    const std::size_t missing = packet.payload - payload.size() + (packet.first_fragment ? 1 : 0);
    if (const std::optional<Rtp> rtp = rtp_of(payload, missing)) {
        add_rtp({.sender = rtp->sender,
                 .timestamp = rtp->timestamp,
                 .sequence = rtp->sequence,
                 .payload_type = rtp->payload_type},
                now_us, parts);
        payload = rtp->payload;
    } else if (is_rtp_) {
        ++other_packets_;
        return;
    }
    stream_.add(payload, payload.size() + missing, number_, parts.pids);
}

void Flow::add_rtp(const RtpHead& head, std::int64_t now_us, const Parts& parts) {
    if (!is_rtp_ && await(head, now_us)) {
        is_rtp_ = true;
        other_packets_ = packets_ - 1;
        for (const Waiting& each : waiting_) {
            other_packets_ -= each.count;
            for (std::uint32_t i = 0; i < each.count; ++i) {
                feed(each.head, each.us, parts);
            }
        }
    }
    if (is_rtp_) {
        feed(head, now_us, parts);
    }
}

// True: one that waits is from the same source. Otherwise this one waits from now on.
bool Flow::await(const RtpHead& head, std::int64_t now_us) {
    auto its = std::ranges::find_if(waiting_, [&](const Waiting& each) {
        return each.count != 0 && each.head.sender == head.sender;
    });
    if (its == waiting_.end()) {
        std::ranges::move_backward(waiting_.begin(), waiting_.end() - 1, waiting_.end());
        its = waiting_.begin();
        its->count = 0;
    } else if (follows(head, its->head)) {
        return true;
    }
    const bool is_same = its->count != 0 && head.sequence == its->head.sequence;
    *its = {head, now_us, is_same ? its->count + 1 : 1};
    return false;
}

void Flow::feed(const RtpHead& head, std::int64_t now_us, const Parts& parts) const {
    const RtpSources::Key key = rtp_key(number_, head.sender);
    RtpSources::Entry* entry = parts.sources.find(key);
    if (entry == nullptr) {
        entry = &parts.sources.make(key);
    }
    entry->value.add(head, now_us, parts.clocks.rate(head.payload_type));
}

}  // namespace capture
