// The receiving side: takes the stream from its source and puts messages into the channel.
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "stream/channel.hpp"
#include "stream/packetizer.hpp"
#include "stream/stats.hpp"
#include "zxcommon.hpp"

namespace relay {

class Source {
public:
    // `socket` receives datagrams, or is the listener for TCP sources.
    Source(zxcommon::Descriptor socket, bool is_udp, bool once, Channel& channel, Stats& stats);
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // The body of the receiving thread.
    void run(zxcommon::StopRequest& stop);

    // For another thread: ends a wait for the source at once.
    void interrupt();

    // True once the only source that was asked for has ended.
    [[nodiscard]] bool finished() const { return finished_; }

private:
    void receive_datagrams(zxcommon::StopRequest& stop);
    void serve_connections(zxcommon::StopRequest& stop);
    void receive_stream(zxcommon::StopRequest& stop, int fd);
    bool await();
    std::int32_t receive(int fd);
    void push(std::span<const std::uint8_t> message);
    void count_skipped(std::uint64_t bytes);
    void report_losses();

    const bool is_udp_;
    const bool once_;
    Channel& channel_;
    Stats& stats_;
    zxcommon::Descriptor socket_;
    zxcommon::Descriptor interrupted_;  // readable for good
    zxcommon::Epoll epoll_;             // waits for these two
    std::vector<std::uint8_t> buffer_;
    std::atomic<bool> finished_{false};

    std::mutex connection_mutex_;
    int connection_ = -1;  // guarded: interrupt() may come while it is being closed

    std::uint64_t last_report_ = 0;
    std::uint64_t reported_drops_ = 0;
    std::uint64_t reported_skipped_ = 0;
};

}  // namespace relay
