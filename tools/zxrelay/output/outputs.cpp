#include "output/outputs.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kBacklogUs = 100000;  // how much of the stream waits in the queue
constexpr std::uint64_t kStepUs = 5000;       // the longest single sleep
constexpr std::uint64_t kLateUs = 1000;       // a longer delay is not made up for
constexpr std::uint64_t kReportIntervalUs = 60000000;
constexpr double kCrowded = 0.5;

}  // namespace

Outputs::Outputs(const std::vector<std::string>& urls, Channel& channel, std::size_t queue)
    : channel_(channel),
      queue_(channel.queue(queue)),
      worker_("relay-datagrams", [this](zxcommon::StopRequest&) { run(); }) {
    for (const std::string& url : urls) {
        lanes_.emplace_back(url);
    }
}

void Outputs::stop() {
    interrupt_.raise();
    worker_.stop();
}

void Outputs::run() {
    while (!interrupt_.is_raised()) {
        if (queue_.empty()) {
            drained_ = true;
            sleep_until_push();
            due_us_ = zxtime_api_upTimeUs() + kBacklogUs;
        } else {
            drained_ = false;  // before a packet leaves the queue, as the main thread expects
            wait_until_due();
            send_next();
        }
    }
}

// Returns at once if there are packets already.
void Outputs::sleep_until_push() {
    if (queue_.sleep()) {
        [[maybe_unused]] const bool is_woken = interrupt_.wait(queue_.wake_fd(), kForever);
        queue_.clear_wake();
    }
}

// Does not wait while the queue is more than half full.
void Outputs::wait_until_due() const {
    std::uint64_t now;
    while ((now = zxtime_api_upTimeUs()) < due_us_ && queue_.fill_ratio() < kCrowded &&
           !interrupt_.is_raised()) {
        usleep(static_cast<useconds_t>(std::min(due_us_ - now, kStepUs)));
    }
}

void Outputs::send_next() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    const std::uint64_t interval =
        kBacklogUs * kMessageSize / std::max(queue_.size(), kMessageSize);
    due_us_ = std::max(due_us_ + interval, now - kLateUs);
    std::array<std::uint8_t, kMessageSize> room;
    const std::span<const std::uint8_t> packets(room.data(), queue_.pop(room));
    for (Lane& lane : lanes_) {
        if (lane.output.send(packets, now)) {
            ++channel_.stats.datagrams_sent;
        } else {
            ++channel_.stats.datagrams_unsent;
            lane.count_refused(errno, now);
        }
    }
}

// Logs at most one line a minute: the error of this datagram, and how many were refused since the
// last line.
void Outputs::Lane::count_refused(int error, std::uint64_t now_us) {
    ++refused;
    if (now_us - reported_us >= kReportIntervalUs || reported_us == 0) {
        log({Level::warning, kTag}, "output %s: %llu datagrams could not be sent: %s",
            output.name().c_str(), static_cast<unsigned long long>(refused), std::strerror(error));
        refused = 0;
        reported_us = now_us;
    }
}

}  // namespace relay
