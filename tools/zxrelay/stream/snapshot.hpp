// What the status page shows of the senders. Each of them publishes a snapshot once a second, so
// that no other thread reads its clients and locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/mutex.hpp"

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

struct StoreView {
    std::string channel;
    std::uint64_t bytes = 0;  // in the rings
    std::uint64_t nodes = 0;  // their blocks
};

struct Snapshot {
    std::vector<ClientView> clients;
    std::vector<LockView> locks;
    std::vector<StoreView> stores;      // of each channel
    std::uint64_t tracked_buffers = 0;  // upper limit, for the size of the memory table

    void add(const Snapshot& other) {
        clients.insert(clients.end(), other.clients.begin(), other.clients.end());
        locks.insert(locks.end(), other.locks.begin(), other.locks.end());
        stores.insert(stores.end(), other.stores.begin(), other.stores.end());
        tracked_buffers += other.tracked_buffers;
    }
};

// Holds the latest snapshot of each sender. Any thread may call it.
class Board {
public:
    explicit Board(std::size_t senders = 1) : current_(senders) {}

    void publish(Snapshot snapshot, std::size_t sender = 0) {
        auto fresh = std::make_shared<const Snapshot>(std::move(snapshot));
        const tools::MutexGuard lock(mutex_);
        current_[sender] = std::move(fresh);
    }
    [[nodiscard]] std::shared_ptr<const Snapshot> read() const {
        const auto all = [this] {
            const tools::MutexGuard lock(mutex_);
            return current_;
        }();
        auto sum = std::make_shared<Snapshot>();
        for (const auto& snapshot : all) {
            sum->add(snapshot != nullptr ? *snapshot : Snapshot());
        }
        return sum;
    }

private:
    mutable tools::Mutex mutex_;
    std::vector<std::shared_ptr<const Snapshot>> current_ ZX_GUARDED_BY(mutex_);
};

}  // namespace relay
