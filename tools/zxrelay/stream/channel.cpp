#include "stream/channel.hpp"

#include <time.h>

#include <algorithm>
#include <utility>

namespace relay {
namespace {

constexpr timespec kPause{0, 1000000};

}  // namespace

Channel::Channel(std::uint32_t capacity, std::size_t senders, std::string name)
    : name_(std::move(name)) {
    for (std::size_t i = 0; i < senders; ++i) {
        queues_.push_back(std::make_unique<Queue>(capacity));
    }
}

bool Channel::push(std::span<const std::uint8_t> packets) {
    bool all = true;
    for (const auto& queue : queues_) {
        all = queue->push(packets) && all;
    }
    return all;
}

bool Channel::push_waiting(std::span<const std::uint8_t> packets, zxcommon::StopRequest& stop) {
    for (const auto& queue : queues_) {
        while (!queue->push(packets)) {
            if (stop.seen()) {
                return false;
            }
            nanosleep(&kPause, nullptr);
        }
    }
    return true;
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

void Channel::close() {
    for (const auto& queue : queues_) {
        queue->close();
    }
}

}  // namespace relay
