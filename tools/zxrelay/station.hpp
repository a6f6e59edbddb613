// A channel at work: with its inputs, and with the destinations of its datagrams.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input/inputs.hpp"
#include "options.hpp"
#include "output/outputs.hpp"
#include "stream/roster.hpp"

namespace relay {

// What the channels of the relay share.
struct Surroundings {
    unsigned senders;    // each gets a queue of every channel
    bool sends_at_once;  // with --latency 0
};

class Station {
public:
    // Throws a Failure.
    Station(const ChannelOptions& options, const ChannelSettings& settings,
            std::vector<OpenInput> inputs, const Surroundings& around);

    void start();  // throws a Failure
    void stop();

    // True if the stream has ended, and everything has left the queues and is sent as datagrams.
    [[nodiscard]] bool finished() const;

    [[nodiscard]] const ChannelOptions& options() const { return options_; }
    [[nodiscard]] const ChannelPtr& channel() const { return channel_; }

private:
    const ChannelOptions options_;
    const ChannelPtr channel_;
    std::optional<Outputs> outputs_;
    Inputs inputs_;
};

}  // namespace relay
