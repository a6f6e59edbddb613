// Transport streams in RTP, and the order of their datagrams.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace tools {

// A datagram of RTP (RFC 3550) with transport stream packets in it (RFC 2250).
struct RtpDatagram {
    std::uint16_t sequence;
    std::uint32_t sender;  // the synchronization source
    std::span<const std::uint8_t> payload;
};

// Returns nothing if the lengths in the header do not fit the datagram, or the payload is anything
// else than whole packets.
std::optional<RtpDatagram> parse_stream_rtp(std::span<const std::uint8_t> datagram);

// Emits payloads in the order in which they were sent. Datagrams that come early wait for those
// before them, in a window of 64 datagrams and for 100 ms at most.
class RtpOrder {
public:
    static constexpr unsigned kWindow = 64;
    static constexpr std::uint64_t kPatienceUs = 100000;

    using Emit = std::function<void(std::span<const std::uint8_t>)>;
    explicit RtpOrder(Emit emit) : emit_(std::move(emit)) {}

    void feed(const RtpDatagram& datagram, std::uint64_t now_us);

    // Gives up the datagrams that were waited for long enough.
    void expire(std::uint64_t now_us);

    // Emits all that waits. Called at the end of a source.
    void finish();

    // How long expire() has nothing to do; nothing: until the next datagram.
    [[nodiscard]] std::optional<std::uint64_t> due_in_us(std::uint64_t now_us) const;

    // Datagrams that have not come in time.
    [[nodiscard]] std::uint64_t lost() const { return lost_; }

    // Datagrams that came twice, or too late. They were not emitted.
    [[nodiscard]] std::uint64_t unused() const { return unused_; }

private:
    struct Slot {
        bool is_held = false;
        std::uint64_t since_us = 0;
        std::vector<std::uint8_t> payload;
    };
    Slot& slot_of(std::uint16_t sequence) { return slots_[sequence % kWindow]; }
    [[nodiscard]] bool continues(const RtpDatagram& datagram) const;
    void place(const RtpDatagram& datagram, std::uint64_t now_us);
    void release_next();
    void release_ready();
    [[nodiscard]] std::uint64_t oldest_us() const;

    Emit emit_;
    std::array<Slot, kWindow> slots_;
    unsigned held_ = 0;
    bool has_begun_ = false;
    std::uint32_t sender_ = 0;
    std::uint16_t next_ = 0;  // the sequence number that is due
    std::uint64_t lost_ = 0;
    std::uint64_t unused_ = 0;
};

}  // namespace tools
