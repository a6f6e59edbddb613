// The sending side: reads messages from the channel and sends them to every client.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "server/log_limit.hpp"
#include "stream/channel.hpp"
#include "stream/client.hpp"
#include "stream/listener.hpp"
#include "stream/publisher.hpp"
#include "stream/stats.hpp"
#include "stream/store.hpp"

namespace relay {

class Fanout {
public:
    struct Limits {
        std::uint32_t client_buffer_bytes;  // how far a client may lag
        unsigned stall_timeout_seconds;     // how long a client may accept no data
    };

    // `store`: nullptr without --keep. Throws a Failure.
    Fanout(zxcommon::Descriptor listener, const Limits& limits, Channel& channel, Store* store,
           Stats& stats, Board& board);
    Fanout(const Fanout&) = delete;
    Fanout& operator=(const Fanout&) = delete;

    // The body of the sending thread.
    void run(zxcommon::StopRequest& stop);

    // True if everything that has left the channel is sent.
    [[nodiscard]] bool drained() const { return drained_; }

private:
    void handle(const epoll_event& event);
    void handle_client(Client& client, std::uint32_t events);
    void start_time_shift(Client& client, std::uint64_t seconds);
    void update_watch(Client& client);
    void add_client(int fd, const std::string& peer);
    void deliver();
    void deliver_to_all(std::span<const std::uint8_t> message);
    void resume_time_shifted();
    void update_drained();
    void do_once_a_second();
    void disconnect_stalled();
    void disconnect(Client& client, const char* why);
    void remove_disconnected();

    const Limits limits_;
    Channel& channel_;
    Store* const store_;
    Stats& stats_;
    zxcommon::Epoll epoll_;
    Listener listener_;
    Publisher publisher_;
    LogLimit connected_{"clients have connected"};
    LogLimit gone_{"clients have gone"};
    LogLimit asked_{"clients have asked for the past stream"};
    std::uint64_t last_second_us_ = 0;
    std::vector<std::uint8_t> message_;
    Clients clients_;
    std::vector<int> disconnected_;
    std::atomic<bool> drained_{true};
};

}  // namespace relay
