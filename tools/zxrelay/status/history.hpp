// The throughput of the last two minutes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>

#include "stream/roster.hpp"
#include "stream/stats.hpp"

namespace relay {

// Bytes per second.
struct Rates {
    std::uint64_t in;
    std::uint64_t out;
};

class History {
public:
    // Called once a second; `passed_us` is the time since the last call. The counters begin at 0.
    void add(const Counters& now, std::uint64_t passed_us) {
        const auto rate = [=](std::uint64_t count, std::uint64_t& last) {
            const std::uint64_t bytes = count - std::exchange(last, count);
            return bytes * 1000000 / std::max<std::uint64_t>(passed_us, 1);
        };
        rates_.push_back({rate(now.bytes_in, last_in_), rate(now.bytes_out, last_out_)});
        if (rates_.size() > kSamples) {
            rates_.pop_front();
        }
    }

    [[nodiscard]] const std::deque<Rates>& rates() const { return rates_; }  // newest last
    [[nodiscard]] Rates latest() const { return rates_.empty() ? Rates{} : rates_.back(); }

private:
    static constexpr std::size_t kSamples = 121;  // two minutes, with both ends

    std::deque<Rates> rates_;
    std::uint64_t last_in_ = 0;
    std::uint64_t last_out_ = 0;
};

// A channel and its throughput.
struct Track {
    ChannelPtr channel;
    History history;
};

}  // namespace relay
