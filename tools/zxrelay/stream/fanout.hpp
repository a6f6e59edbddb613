// The sending side: takes messages from the channel and gives them to every client.
#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "stream/channel.hpp"
#include "stream/client.hpp"
#include "stream/snapshot.hpp"
#include "stream/stats.hpp"
#include "stream/store.hpp"
#include "stream/worker.hpp"

namespace relay {

class Fanout {
public:
    struct Limits {
        std::uint32_t client_buffer;  // bytes that a client may lag behind
        unsigned stall_sec;           // a client that takes nothing so long is disconnected
    };

    // `store`: nullptr when nothing is kept. Throws a Failure.
    Fanout(zx::UniqueFd listener, const Limits& limits, Channel& channel, Store* store,
           Stats& stats, Board& board);
    ~Fanout();
    Fanout(const Fanout&) = delete;
    Fanout& operator=(const Fanout&) = delete;

    // The body of the sending thread.
    void run(Worker& worker);

    // True when no client waits for anything that has left the channel.
    [[nodiscard]] bool drained() const { return drained_; }

private:
    void handle(const epoll_event& event);
    void handle_client(Client& client, std::uint32_t events);
    void shift(Client& client, std::uint64_t seconds);
    void watch(Client& client);
    void accept_clients();
    void rest_listener();
    void deliver();
    void deliver_to_all(std::span<const std::uint8_t> message);
    void serve_shifted();
    void look_at_drain();
    void do_each_second();
    void end_stalled();
    void publish();
    void end(Client& client, const char* why);
    void remove_ended();

    const Limits limits_;
    Channel& channel_;
    Store* const store_;
    Stats& stats_;
    Board& board_;
    zx::UniqueFd listener_;
    int epfd_;
    bool listener_rests_ = false;  // no descriptor was left for another client
    bool missed_store_ = false;    // a client asked for what is not kept
    std::uint64_t last_round_ = 0;
    std::uint64_t last_publish_us_;
    std::vector<std::uint8_t> message_;
    std::unordered_map<int, std::unique_ptr<Client>> clients_;
    std::vector<int> ended_;
    std::atomic<bool> drained_{true};
};

}  // namespace relay
