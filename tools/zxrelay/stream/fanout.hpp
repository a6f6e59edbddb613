// The sending side: takes messages from the channel and gives them to every client.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

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
        std::uint32_t client_buffer;  // bytes that a client may lag behind
        unsigned stall_sec;           // how long a client may accept no data
    };

    // `store`: nullptr when nothing is kept. Throws a Failure.
    Fanout(zxcommon::Descriptor listener, const Limits& limits, Channel& channel, Store* store,
           Stats& stats, Board& board);
    Fanout(const Fanout&) = delete;
    Fanout& operator=(const Fanout&) = delete;

    // The body of the sending thread.
    void run(zxcommon::StopRequest& stop);

    // True when no client waits for anything that has left the channel.
    [[nodiscard]] bool drained() const { return drained_; }

private:
    void handle(const epoll_event& event);
    void handle_client(Client& client, std::uint32_t events);
    void shift(Client& client, std::uint64_t seconds);
    void watch(Client& client);
    void add_client(int fd, const std::string& peer);
    void deliver();
    void deliver_to_all(std::span<const std::uint8_t> message);
    void serve_shifted();
    void check_drained();
    void do_each_second();
    void end_stalled();
    void end(Client& client, const char* why);
    void remove_ended();

    const Limits limits_;
    Channel& channel_;
    Store* const store_;
    Stats& stats_;
    zxcommon::Epoll epoll_;
    Listener listener_;
    Publisher publisher_;
    bool missed_store_ = false;  // a client asked for what is not kept
    std::uint64_t last_round_ = 0;
    std::vector<std::uint8_t> message_;
    Clients clients_;
    std::vector<int> ended_;
    std::atomic<bool> drained_{true};
};

}  // namespace relay
