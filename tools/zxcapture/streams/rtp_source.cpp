#include "streams/rtp_source.hpp"

#include <algorithm>
#include <cmath>

namespace capture {
namespace {

constexpr std::uint32_t kUsualRate = 90000;

// RFC 3551, tables 4 and 5. All others are 90 kHz.
constexpr std::pair<std::uint8_t, std::uint32_t> kRates[] = {
    {0, 8000},  {1, 8000},   {2, 8000},   {3, 8000},   {4, 8000},   {5, 8000},  {6, 16000},
    {7, 8000},  {8, 8000},   {9, 8000},   {10, 44100}, {11, 44100}, {12, 8000}, {13, 8000},
    {15, 8000}, {16, 11025}, {17, 22050}, {18, 8000},  {19, 8000}};

}  // namespace

RtpClocks::RtpClocks() {
    rates_.fill(kUsualRate);
    for (const auto& [type, rate] : kRates) {
        rates_[type] = rate;
    }
}

void RtpSource::add(const RtpHead& head, std::int64_t now_us, std::uint32_t clock_rate) {
    const bool is_first = packets_++ == 0;
    if (is_first || head.payload_type != payload_type_) {
        payload_type_ = head.payload_type;
        clock_rate_ = clock_rate;
        has_time_ = false;
    }
    Place where = Place::next;
    if (is_first) {
        begin_run(head.sequence);
    } else {
        where = place(head.sequence);
    }
    if (where == Place::restart) {
        has_time_ = false;
    }
    if (where != Place::stray) {
        add_jitter(head, now_us);
    }
}

// The first number is far from 0, so that earlier ones may come after it.
void RtpSource::begin_run(std::uint16_t sequence) {
    first_ = last_ = 0x10000U + sequence;
    in_run_ = 1;
    seen_.reset();
    seen_.set(last_ % kWindow);
    has_stray_ = false;
}

RtpSource::Place RtpSource::place(std::uint16_t sequence) {
    const unsigned step = static_cast<std::uint16_t>(sequence - last_);
    const unsigned behind = static_cast<std::uint16_t>(last_ - sequence);
    if (step != 0 && step < kLargestStep) {
        go_on(sequence, step);
        return Place::next;
    }
    return behind < kWindow ? place_behind(sequence, behind) : place_outside(sequence);
}

void RtpSource::go_on(std::uint16_t sequence, unsigned step) {
    for (unsigned i = 1; i <= std::min(step, kWindow); ++i) {
        seen_.reset((last_ + i) % kWindow);
    }
    last_ += step;
    seen_.set(sequence % kWindow);
    ++in_run_;
    has_stray_ = false;
}

RtpSource::Place RtpSource::place_behind(std::uint16_t sequence, unsigned behind) {
    if (seen_.test(sequence % kWindow)) {
        ++duplicates_;
        return Place::duplicate;
    }
    seen_.set(sequence % kWindow);
    first_ = std::min(first_, last_ - behind);
    ++in_run_;
    ++disordered_;
    return Place::late;
}

RtpSource::Place RtpSource::place_outside(std::uint16_t sequence) {
    if (!has_stray_ || sequence != after_stray_) {
        has_stray_ = true;
        after_stray_ = static_cast<std::uint16_t>(sequence + 1);
        ++strays_;
        return Place::stray;
    }
    --strays_;  // it was the first of the new run
    ++restarts_;
    lost_before_ += lost_in_run();
    begin_run(static_cast<std::uint16_t>(sequence - 1));
    go_on(sequence, 1);
    return Place::restart;
}

// RFC 3550, section 6.4.1.
void RtpSource::add_jitter(const RtpHead& head, std::int64_t now_us) {
    if (has_time_) {
        const auto arrival_us = static_cast<double>(now_us - last_us_);
        const auto ticks = static_cast<std::int32_t>(head.timestamp - last_timestamp_);
        jitter_us_ += (std::fabs(arrival_us - ticks * 1e6 / clock_rate_) - jitter_us_) / 16;
        jitter_most_us_ = std::max(jitter_most_us_, jitter_us_);
        jitter_sum_us_ += jitter_us_;
        ++jitter_count_;
    }
    has_time_ = true;
    last_us_ = now_us;
    last_timestamp_ = head.timestamp;
}

}  // namespace capture
