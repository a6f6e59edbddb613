// Publishes what the status page shows of a sender.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "stream/client.hpp"
#include "stream/feed.hpp"
#include "stream/snapshot.hpp"

namespace relay {

class Publisher {
public:
    Publisher(Board& board, std::size_t sender);

    // Rates cover the time since the last call.
    void publish(const Clients& clients, const Feeds& feeds);

private:
    Board& board_;
    const std::size_t sender_;
    std::uint64_t last_us_;
};

}  // namespace relay
