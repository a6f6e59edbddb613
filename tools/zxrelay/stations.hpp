// The channels of the configuration.
#pragma once

#include <memory>
#include <vector>

#include "input/pool.hpp"
#include "station.hpp"
#include "stream/senders.hpp"

namespace relay {

// Used by the main thread alone.
class Stations {
public:
    // The pool may have the inputs already.
    Stations(Senders& senders, const Surroundings& around, InputPool pool)
        : senders_(senders), around_(around), pool_(std::move(pool)) {}

    // Opens the first channels and lets their streams begin. Throws a Failure.
    void start(const std::vector<ChannelOptions>& wanted);

    struct Changes {
        std::size_t opened = 0;
        std::size_t closed = 0;
        std::size_t failed = 0;
        std::size_t kept = 0;
    };
    // Closes the channels that are not wanted as they are, and opens those that are missing. One
    // that cannot be opened costs an error line. The others do not notice.
    Changes change(const std::vector<ChannelOptions>& wanted);

    // Closes the sockets of the start that no channel uses.
    void drop_spare_inputs() { pool_.drop_spare(); }

    // True if there are channels, and the streams of all of them have ended.
    [[nodiscard]] bool finished() const;

    void stop();

private:
    void open(const ChannelOptions& options, unsigned rank);
    bool try_open(const ChannelOptions& options, unsigned rank);
    [[nodiscard]] bool has(const ChannelOptions& options) const;
    std::size_t close_unless(const std::vector<ChannelOptions>& wanted);
    void close(Station& station);

    Senders& senders_;
    const Surroundings around_;
    InputPool pool_;
    std::vector<std::unique_ptr<Station>> stations_;
};

}  // namespace relay
