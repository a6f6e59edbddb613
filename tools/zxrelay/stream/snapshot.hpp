// What the status page shows of the senders. Each of them publishes a snapshot once a second, so
// that no other thread reads its clients and locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace relay {

struct ClientView {
    std::uint64_t number;  // for Senders::disconnect()
    std::string channel;
    std::string address;
    std::uint64_t bytes_sent;
    std::uint64_t bytes_per_sec;
    std::uint64_t dropped;  // messages
    std::uint64_t waiting;  // bytes
    bool is_shifted;        // in time
};

struct LockView {
    std::string name;
    std::string holder;
};

struct Snapshot {
    std::vector<ClientView> clients;
    std::vector<LockView> locks;
    std::uint64_t stored_bytes = 0;     // in the rings
    std::uint32_t stored_nodes = 0;     // their blocks
    std::uint64_t tracked_buffers = 0;  // upper limit, for the size of the memory table

    void add(const Snapshot& other) {
        clients.insert(clients.end(), other.clients.begin(), other.clients.end());
        locks.insert(locks.end(), other.locks.begin(), other.locks.end());
        stored_bytes += other.stored_bytes;
        stored_nodes += other.stored_nodes;
        tracked_buffers += other.tracked_buffers;
    }
};

// Holds the latest snapshot of each sender. Any thread may call it.
class Board {
public:
    explicit Board(std::size_t senders = 1) : current_(senders) {}

    void publish(Snapshot snapshot, std::size_t sender = 0) {
        auto fresh = std::make_shared<const Snapshot>(std::move(snapshot));
        const std::scoped_lock lock(mutex_);
        current_[sender] = std::move(fresh);
    }
    [[nodiscard]] std::shared_ptr<const Snapshot> read() const {
        const auto all = [this] {
            const std::scoped_lock lock(mutex_);
            return current_;
        }();
        auto sum = std::make_shared<Snapshot>();
        for (const auto& snapshot : all) {
            sum->add(snapshot != nullptr ? *snapshot : Snapshot());
        }
        return sum;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<const Snapshot>> current_;
};

}  // namespace relay
