#include "input/entrance.hpp"

#include <utility>

#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kReportIntervalUs = 1000000;
constexpr int kRoomPauseMs = 1;  // the sender makes room within a few milliseconds

// Returns the number as the log's %llu takes it, and sets it to 0.
unsigned long long take(std::uint64_t& count) {
    return std::exchange(count, 0);
}

}  // namespace

Entrance::Entrance(Channel& channel, Selector& selector, std::size_t rank)
    : channel_(channel), selector_(selector), rank_(rank) {}

// A template, because it must need no memory: callbacks of C code push, too.
template <typename Put>
Entrance::Outcome Entrance::offer(const Put& put) {
    const tools::MutexGuard lock(selector_.mutex());
    if (!selector_.admits(rank_, zxtime_api_upTimeUs())) {
        return Outcome::done;  // another input passes: this one only shows that it is alive
    }
    if (!put()) {
        return Outcome::no_room;
    }
    ++channel_.stats.messages_in;
    return Outcome::done;
}

void Entrance::push(std::span<const std::uint8_t> message) {
    if (offer([&] { return channel_.push(message); }) == Outcome::no_room) {
        ++channel_.stats.dropped_fifo_full;
        ++dropped_;
        report_when_due();
    }
}

void Entrance::push_waiting(std::span<const std::uint8_t> message, const Interrupt& interrupt) {
    std::size_t queue = 0;  // the first one that lacks the message
    const auto put = [&] {
        queue = channel_.push_from(queue, message);
        return queue == channel_.queues();
    };
    while (offer(put) == Outcome::no_room && !interrupt.is_raised()) {
        interrupt.pause(kRoomPauseMs);
    }
}

void Entrance::count_received(std::size_t bytes) {
    if (selector_.is_chosen(rank_)) {
        channel_.stats.bytes_in += bytes;
    }
}

void Entrance::count_skipped(std::uint64_t bytes) {
    if (bytes != 0) {
        channel_.stats.bytes_no_stream += bytes;
        skipped_ += bytes;
        report_when_due();
    }
}

void Entrance::count_lost(std::uint64_t datagrams) {
    if (datagrams != 0) {
        channel_.stats.datagrams_lost += datagrams;
        lost_ += datagrams;
        report_when_due();
    }
}

void Entrance::report_when_due() {
    if (zxtime_api_counterAsyncUs(&last_report_, kReportIntervalUs) == 1) {
        report();
    }
}

void Entrance::report() {
    if (dropped_ != 0) {
        log({Level::warning, kTag}, "the FIFO is full: %llu messages dropped", take(dropped_));
    }
    if (skipped_ != 0) {
        log({Level::warning, kTag},
            "skipped %llu bytes of the source %s that are not transport stream packets",
            take(skipped_), name().c_str());
    }
    if (lost_ != 0) {
        log({Level::warning, kTag}, "%llu datagrams of the source %s were lost on the way",
            take(lost_), name().c_str());
    }
}

}  // namespace relay
