// Prints a line of statistics once a second.
#pragma once

#include <cstdint>

#include "stream/roster.hpp"

namespace relay {

class Monitor {
public:
    explicit Monitor(const Roster& roster);

    // Prints a line; its rates cover the time since the last line.
    void print();

    // Prints a line if the last one is at least a second old.
    void print_when_due();

private:
    const Roster& roster_;
    std::uint64_t start_us_;
    std::uint64_t last_us_;
    std::uint64_t last_in_ = 0;
    std::uint64_t last_out_ = 0;
};

}  // namespace relay
