#include "common/rtp_order.hpp"

#include <algorithm>

#include "common/rtp.hpp"
#include "common/transport_stream.hpp"

namespace tools {
namespace {

// A larger step of the numbers is no loss: the sender has started again.
constexpr int kLargestGap = 3000;

int signed_step(std::uint16_t difference) {
    return static_cast<std::int16_t>(difference);
}

}  // namespace

std::optional<RtpDatagram> parse_stream_rtp(std::span<const std::uint8_t> datagram) {
    const auto rtp = parse_rtp(datagram);
    return rtp && is_transport_stream(rtp->payload)
               ? std::optional(RtpDatagram{rtp->sequence, rtp->sender, rtp->payload})
               : std::nullopt;
}

void RtpOrder::feed(const RtpDatagram& datagram, std::uint64_t now_us) {
    if (!continues(datagram)) {
        finish();
        has_begun_ = true;
        sender_ = datagram.sender;
        next_ = datagram.sequence;
    }
    const auto distance = static_cast<std::uint16_t>(datagram.sequence - next_);
    if (signed_step(distance) < 0) {
        ++unused_;  // it has come twice, or too late
        return;
    }
    for (unsigned steps = distance; steps >= kWindow; --steps) {
        release_next();
    }
    place(datagram, now_us);
    release_ready();
}

bool RtpOrder::continues(const RtpDatagram& datagram) const {
    const int distance = signed_step(static_cast<std::uint16_t>(datagram.sequence - next_));
    return has_begun_ && datagram.sender == sender_ && distance < kLargestGap &&
           distance >= -static_cast<int>(kWindow);
}

void RtpOrder::place(const RtpDatagram& datagram, std::uint64_t now_us) {
    Slot& slot = slot_of(datagram.sequence);
    if (slot.is_held) {
        ++unused_;  // it has come twice
        return;
    }
    if (datagram.sequence == next_) {
        emit_(datagram.payload);  // the usual case, without a copy
        ++next_;
        return;
    }
    slot.payload.assign(datagram.payload.begin(), datagram.payload.end());
    slot.since_us = now_us;
    slot.is_held = true;
    ++held_;
}

void RtpOrder::expire(std::uint64_t now_us) {
    while (held_ > 0 && now_us - oldest_us() >= kPatienceUs) {
        release_next();
        release_ready();
    }
}

void RtpOrder::finish() {
    while (held_ > 0) {
        release_next();
    }
}

std::optional<std::uint64_t> RtpOrder::due_in_us(std::uint64_t now_us) const {
    if (held_ == 0) {
        return std::nullopt;
    }
    const std::uint64_t waited = now_us - oldest_us();
    return waited < kPatienceUs ? kPatienceUs - waited : 0;
}

void RtpOrder::release_next() {
    Slot& slot = slot_of(next_++);
    if (!slot.is_held) {
        ++lost_;
        return;
    }
    slot.is_held = false;
    --held_;
    emit_(slot.payload);
}

void RtpOrder::release_ready() {
    while (slot_of(next_).is_held) {
        release_next();
    }
}

std::uint64_t RtpOrder::oldest_us() const {
    std::uint64_t oldest = UINT64_MAX;
    for (const Slot& slot : slots_) {
        oldest = slot.is_held ? std::min(oldest, slot.since_us) : oldest;
    }
    return oldest;
}

}  // namespace tools
