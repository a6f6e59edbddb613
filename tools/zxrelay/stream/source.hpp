// The receiving side: receives the stream from its source and pushes messages into the channel.
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
    // `socket`: a UDP socket, or the listener for TCP sources.
    Source(zxcommon::Descriptor socket, bool is_udp, bool once, Channel& channel, Stats& stats);
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // The body of the receiving thread.
    void run(zxcommon::StopRequest& stop);

    // Ends a wait for the source at once. Called by another thread.
    void interrupt();

    // True after the first source has ended, with --once.
    [[nodiscard]] bool finished() const { return finished_; }

private:
    void receive_datagrams(zxcommon::StopRequest& stop);
    void serve_connections(zxcommon::StopRequest& stop);
    void receive_stream(zxcommon::StopRequest& stop, int fd);
    bool wait_for_socket();
    std::int32_t receive(int fd);
    void push(std::span<const std::uint8_t> message, zxcommon::StopRequest& stop);
    void count_skipped(std::uint64_t bytes);
    void report_losses();

    const bool is_udp_;
    const bool once_;
    Channel& channel_;
    Stats& stats_;
    zxcommon::Descriptor socket_;
    zxcommon::Descriptor interrupted_;  // stays readable after interrupt()
    zxcommon::Epoll epoll_;             // waits for socket_ and interrupted_
    std::vector<std::uint8_t> buffer_;
    std::atomic<bool> finished_{false};

    std::mutex connection_mutex_;
    int connection_ = -1;  // guarded: interrupt() may run while the connection is closed

    std::uint64_t last_report_ = 0;
    std::uint64_t reported_drops_ = 0;
    std::uint64_t reported_skipped_ = 0;
};

}  // namespace relay
