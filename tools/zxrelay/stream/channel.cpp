#include "stream/channel.hpp"

#include <algorithm>
#include <utility>

#include "stream/lock_table.hpp"

namespace relay {

Channel::Channel(ChannelSettings settings, std::size_t queues) : settings_(std::move(settings)) {
    const tools::MutexGuard lock(lock_table_mutex());  // each queue has a lock
    std::vector<std::unique_ptr<Queue>> made;
    for (std::size_t i = 0; i < queues; ++i) {
        made.push_back(std::make_unique<Queue>(settings_.fifo_bytes));
    }
    queues_ = std::move(made);
}

Channel::~Channel() {
    const tools::MutexGuard lock(lock_table_mutex());
    queues_.clear();
}

bool Channel::push(std::span<const std::uint8_t> packets) {
    bool all = true;
    for (const auto& queue : queues_) {
        all = queue->push(packets) && all;
    }
    return all;
}

std::size_t Channel::push_from(std::size_t first, std::span<const std::uint8_t> packets) {
    while (first < queues_.size() && queues_[first]->push(packets)) {
        ++first;
    }
    return first;
}

bool Channel::empty() const {
    return std::all_of(queues_.begin(), queues_.end(),
                       [](const auto& queue) { return queue->empty(); });
}

double Channel::fill_ratio() const {
    double fullest = 0;
    for (const auto& queue : queues_) {
        fullest = std::max(fullest, queue->fill_ratio());
    }
    return fullest;
}

}  // namespace relay
