// The line of statistics, once a second.
#pragma once

#include <cstdint>

#include "stream/channel.hpp"
#include "stream/stats.hpp"

namespace relay {

class Monitor {
public:
    Monitor(const Stats& stats, const Channel& channel);

    // Prints what happened since the last line.
    void print();

    // Does so when the last line is a second old.
    void print_when_due();

private:
    const Stats& stats_;
    const Channel& channel_;
    std::uint64_t start_us_;
    std::uint64_t last_us_;
    std::uint64_t last_in_ = 0;
    std::uint64_t last_out_ = 0;
};

}  // namespace relay
