// Where an input puts its messages.
#pragma once

#include <cstdint>
#include <span>

#include "input/interrupt.hpp"
#include "input/selector.hpp"
#include "stream/channel.hpp"
#include "zxcommon.hpp"

namespace relay {

// One for each input; the thread of the input alone uses it. It counts what the input brings, and
// logs what was lost, once a second at most.
class Entrance {
public:
    Entrance(Channel& channel, Selector& selector, std::size_t rank);
    ~Entrance() { report(); }
    Entrance(const Entrance&) = delete;
    Entrance& operator=(const Entrance&) = delete;

    // Pushes a message of whole packets. Without room for it, the message is dropped and counted.
    void push(std::span<const std::uint8_t> message);

    // Waits for room, so that the source is slowed down. `interrupt` ends the wait.
    void push_waiting(std::span<const std::uint8_t> message, const Interrupt& interrupt);

    void count_received(std::size_t bytes);
    void count_skipped(std::uint64_t bytes);   // which are not transport stream packets
    void count_lost(std::uint64_t datagrams);  // which were sent, but have not arrived

    // Logs what was lost since the last report, once a second at most. Called at the end of a
    // source, and about once a second.
    void report_when_due();

    // The URL of the input, for the log.
    [[nodiscard]] const std::string& name() const { return selector_.name(rank_); }

private:
    enum class Outcome { done, no_room };
    template <typename Put>
    Outcome offer(const Put& put);
    void report();

    Channel& channel_;
    Selector& selector_;
    const std::size_t rank_;
    std::uint64_t last_report_ = 0;
    std::uint64_t dropped_ = 0;  // these were not reported yet
    std::uint64_t skipped_ = 0;
    std::uint64_t lost_ = 0;
};

}  // namespace relay
