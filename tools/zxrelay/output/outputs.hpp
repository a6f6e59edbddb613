// The destinations of a channel's datagrams.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "input/interrupt.hpp"
#include "output/output.hpp"
#include "stream/channel.hpp"
#include "stream/worker.hpp"

namespace relay {

// One thread sends to all of them, from a queue of the channel. It keeps about a tenth of a second
// of the stream there, and sends the faster the more there is: so the datagrams leave evenly, even
// if the stream comes in bursts.
class Outputs {
public:
    // `queue`: the number of the queue. Throws a Failure.
    Outputs(const std::vector<std::string>& urls, Channel& channel, std::size_t queue);
    ~Outputs() { stop(); }
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    void start() { worker_.start(); }  // throws a Failure

    void stop();

    // True if everything that has left the queue is sent.
    [[nodiscard]] bool drained() const { return drained_; }

private:
    struct Lane {
        explicit Lane(const std::string& url) : output(parse_target(url)) {}
        void count_refused(int error, std::uint64_t now_us);
        Output output;
        std::uint64_t refused = 0;  // since the last report
        std::uint64_t reported_us = 0;
    };
    void run();
    void sleep_until_push();
    void wait_until_due() const;
    void send_next();

    Channel& channel_;
    Queue& queue_;
    Interrupt interrupt_;
    std::list<Lane> lanes_;
    std::uint64_t due_us_ = 0;  // the next datagram
    std::atomic<bool> drained_{true};
    Worker worker_;
};

}  // namespace relay
