// The sending side: takes messages from the channel and gives them to every client.
#pragma once

#include <sys/epoll.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "channel.hpp"
#include "client.hpp"
#include "net.hpp"
#include "stats.hpp"
#include "worker.hpp"

namespace relay {

class Fanout {
public:
    // Opens the listener; throws a Failure when that is not possible.
    Fanout(const Endpoint& endpoint, std::uint32_t client_buffer, unsigned stall_sec,
           Channel& channel, Stats& stats);
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
    void accept_clients();
    void rest_listener();
    void deliver();
    void deliver_to_all(std::span<const std::uint8_t> message);
    void end_stalled();
    void end(Client& client, const char* why);
    void remove_ended();

    const std::uint32_t client_buffer_;
    const std::uint64_t stall_us_;
    Channel& channel_;
    Stats& stats_;
    zx::UniqueFd listener_;
    int epfd_;
    bool listener_rests_ = false;  // no descriptor was left for another client
    std::uint64_t last_round_ = 0;
    std::vector<std::uint8_t> message_;
    std::unordered_map<int, std::unique_ptr<Client>> clients_;
    std::vector<int> ended_;
    std::atomic<bool> drained_{true};
};

}  // namespace relay
