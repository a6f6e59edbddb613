// The channels of the configuration.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "input/pool.hpp"
#include "station.hpp"
#include "stream/senders.hpp"

namespace relay {

// Used by the main thread alone.
class Stations {
public:
    // `pool`: may have inputs of the channels already.
    Stations(Senders& senders, const Surroundings& around, InputPool pool)
        : senders_(senders), around_(around), pool_(std::move(pool)) {}

    // Opens the channels of the start, which then receive. Throws a Failure.
    void start(const std::vector<ChannelOptions>& wanted);

    struct Changes {
        std::size_t opened = 0;
        std::size_t closed = 0;
        std::size_t failed = 0;
        std::size_t kept = 0;
    };
    // Closes the channels that are gone or have changed, and opens the wanted ones that are not
    // open. Logs an error for each one that cannot be opened. The others are not disturbed.
    Changes change(const std::vector<ChannelOptions>& wanted);

    // Tries from time to time to open the channels that change() could not open.
    void open_missing_when_due();

    // True if there are channels, and the streams of all of them have ended.
    [[nodiscard]] bool finished() const;

    void stop();

private:
    void open(const ChannelOptions& options, unsigned rank);
    bool try_open(const ChannelOptions& options, unsigned rank);
    [[nodiscard]] Station* find(const ChannelOptions& options) const;  // nullptr: not open
    std::size_t close_unless(const std::vector<ChannelOptions>& wanted);
    void close(Station& station);

    Senders& senders_;
    const Surroundings around_;
    InputPool pool_;
    std::vector<ChannelOptions> wanted_;     // at the last change
    std::uint64_t missing_us_ = UINT64_MAX;  // when the missing ones are tried again
    std::vector<std::unique_ptr<Station>> stations_;
};

}  // namespace relay
