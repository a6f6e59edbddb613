// The texts behind the status page: the memory table and the JSON.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "stream/snapshot.hpp"
#include "stream/stats.hpp"

namespace relay {

// What does not change while the relay runs.
struct Facts {
    std::string source;
    std::string output;
    std::uint64_t fifo_size = 0;
};

// Bytes per second.
struct Rates {
    std::uint64_t in;
    std::uint64_t out;
};

struct Report {
    const Facts& facts;
    const Stats& stats;
    const Snapshot& snapshot;
    const std::deque<Rates>& history;
    double fifo_fill;
    std::uint64_t uptime_sec;
};

// The table of the live buffers, as the allocator writes it; allocations wait meanwhile.
std::string memory_table(std::uint64_t tracked_buffers);

// `memory`: null, or the table, whose rows are added. These throw when memory is short.
std::string to_json(const Report& report, const std::string* memory);

}  // namespace relay
