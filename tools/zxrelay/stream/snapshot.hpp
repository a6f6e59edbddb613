// What the status page shows of the sending thread. That thread publishes a snapshot once a second,
// so that no other thread reads its clients and locks.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace relay {

struct ClientView {
    std::string address;
    std::uint64_t bytes_sent;
    std::uint64_t bytes_per_sec;
    std::uint64_t dropped;  // messages
    std::uint64_t waiting;  // bytes
    bool is_shifted;        // reads from the store
};

struct LockView {
    std::string name;
    std::string holder;
};

struct Snapshot {
    std::vector<ClientView> clients;
    std::vector<LockView> locks;
    std::uint64_t stored_bytes = 0;  // in the time-shift store
    std::uint32_t stored_nodes = 0;
    std::uint64_t tracked_buffers = 0;  // upper limit, for the size of the memory table
};

// Holds the latest snapshot. Any thread may call it.
class Board {
public:
    void publish(Snapshot snapshot) {
        auto fresh = std::make_shared<const Snapshot>(std::move(snapshot));
        const std::scoped_lock lock(mutex_);
        current_ = std::move(fresh);
    }
    [[nodiscard]] std::shared_ptr<const Snapshot> read() const {
        const std::scoped_lock lock(mutex_);
        return current_;
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Snapshot> current_ = std::make_shared<const Snapshot>();
};

}  // namespace relay
