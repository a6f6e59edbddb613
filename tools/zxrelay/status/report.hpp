// Makes the JSON and the memory table of the status page.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "stream/snapshot.hpp"
#include "stream/stats.hpp"

namespace relay {

// Facts that do not change while the relay runs.
struct Facts {
    std::string source;
    std::string output;
    std::uint64_t fifo_size = 0;
    std::string channel;
};

// Bytes per second.
struct Rates {
    std::uint64_t in;
    std::uint64_t out;
};

struct Report {
    const Facts& facts;
    const Counters total;
    const GuestStats& guests;
    const Snapshot& snapshot;
    const std::deque<Rates>& history;
    double fifo_fill;
    std::uint64_t uptime_sec;
};

// True if the source has sent something in the last second or two.
[[nodiscard]] inline bool is_receiving(const Report& report) {
    return !report.history.empty() && report.history.back().in != 0;
}

// Returns the HTML table of the live buffers from the allocator. Allocations wait until it is done.
std::string memory_table(std::uint64_t tracked_buffers);

// `memory`: the memory table, whose rows are added, or null. Both functions throw if memory is
// short.
std::string to_json(const Report& report, const std::string* memory);

}  // namespace relay
