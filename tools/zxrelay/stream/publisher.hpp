// Publishes what the status page shows of the sending thread.
#pragma once

#include <cstdint>

#include "stream/client.hpp"
#include "stream/snapshot.hpp"
#include "stream/store.hpp"

namespace relay {

class Publisher {
public:
    explicit Publisher(Board& board);

    // Rates cover the time since the last call. `store`: nullptr without --keep.
    void publish(const Clients& clients, const Store* store);

private:
    Board& board_;
    std::uint64_t last_us_;
};

}  // namespace relay
