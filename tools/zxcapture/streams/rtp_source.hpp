// What can be said of one source of RTP from the headers of its packets (RFC 3550).
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>

#include "common/rtp.hpp"

namespace capture {

// The rates of the clocks by payload type, in Hz: those that RFC 3551 gives, and 90 kHz for all
// others.
class RtpClocks {
public:
    static constexpr std::size_t kTypes = 128;
    RtpClocks();
    void set(std::uint8_t payload_type, std::uint32_t rate) { rates_[payload_type] = rate; }
    [[nodiscard]] std::uint32_t rate(std::uint8_t payload_type) const {
        return rates_[payload_type % kTypes];
    }

private:
    std::array<std::uint32_t, kTypes> rates_{};
};

// What is kept of a packet.
struct RtpHead {
    std::uint32_t sender = 0;
    std::uint32_t timestamp = 0;
    std::uint16_t sequence = 0;
    std::uint8_t payload_type = 0;
};

class RtpSource {
public:
    // A packet is late if its number is lower than the last one, by less than the window. One that
    // is lower still, or goes on by `kLargestStep`, belongs to a restart if the next number
    // follows.
    static constexpr unsigned kWindow = 512;
    static constexpr unsigned kLargestStep = 3000;

    void add(const RtpHead& head, std::int64_t now_us, std::uint32_t clock_rate);

    [[nodiscard]] std::uint64_t packets() const { return packets_; }
    [[nodiscard]] std::uint64_t lost() const { return lost_before_ + lost_in_run(); }
    [[nodiscard]] std::uint64_t disordered() const { return disordered_; }
    [[nodiscard]] std::uint64_t duplicates() const { return duplicates_; }
    [[nodiscard]] std::uint64_t restarts() const { return restarts_; }
    // Packets whose numbers fit nowhere.
    [[nodiscard]] std::uint64_t strays() const { return strays_; }
    [[nodiscard]] std::uint8_t payload_type() const { return payload_type_; }
    [[nodiscard]] std::uint32_t clock_rate() const { return clock_rate_; }
    [[nodiscard]] double jitter_us() const { return jitter_us_; }
    [[nodiscard]] double jitter_most_us() const { return jitter_most_us_; }
    [[nodiscard]] double jitter_mean_us() const {
        return jitter_count_ == 0 ? 0 : jitter_sum_us_ / static_cast<double>(jitter_count_);
    }

private:
    enum class Place { next, late, duplicate, stray, restart };
    Place place(std::uint16_t sequence);
    Place place_behind(std::uint16_t sequence, unsigned behind);
    Place place_outside(std::uint16_t sequence);
    void begin_run(std::uint16_t sequence);
    void go_on(std::uint16_t sequence, unsigned step);
    void add_jitter(const RtpHead& head, std::int64_t now_us);
    [[nodiscard]] std::uint64_t lost_in_run() const { return last_ + 1 - first_ - in_run_; }

    std::uint64_t packets_ = 0;
    std::uint64_t disordered_ = 0;
    std::uint64_t duplicates_ = 0;
    std::uint64_t restarts_ = 0;
    std::uint64_t strays_ = 0;

    // A run goes on until a restart. Its numbers do not wrap.
    std::uint64_t lost_before_ = 0;  // in earlier runs
    std::uint64_t first_ = 1;
    std::uint64_t last_ = 0;
    std::uint64_t in_run_ = 0;     // different numbers
    std::bitset<kWindow> seen_{};  // which of the last numbers have come
    bool has_stray_ = false;
    std::uint16_t after_stray_ = 0;

    std::uint8_t payload_type_ = 0;
    std::uint32_t clock_rate_ = 0;
    bool has_time_ = false;
    std::int64_t last_us_ = 0;
    std::uint32_t last_timestamp_ = 0;
    // Not in ticks: another payload type may have another clock.
    double jitter_us_ = 0;
    double jitter_most_us_ = 0;
    double jitter_sum_us_ = 0;
    std::uint64_t jitter_count_ = 0;
};

}  // namespace capture
