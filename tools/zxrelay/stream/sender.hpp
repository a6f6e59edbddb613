// The sending side: sends the channels to their clients.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "server/log_limit.hpp"
#include "stream/channel.hpp"
#include "stream/client.hpp"
#include "stream/feed.hpp"
#include "stream/http_answer.hpp"
#include "stream/inbox.hpp"
#include "stream/on_demand.hpp"
#include "stream/publisher.hpp"
#include "stream/reception.hpp"

namespace relay {

// A sender has clients and rings of its own. In a round, it takes what has come and sends to every
// client what is due, in one call for each. It rests between the rounds.
class Sender {
public:
    struct Settings {
        std::uint64_t latency_us;    // from round to round
        std::uint64_t stall_us;      // how long a client may accept no data
        std::uint64_t memory_bytes;  // for the rings of this sender
        Site site;                   // its channels come later
        OnDemand on_demand;          // empty: no channel is opened for a client
    };

    // `number`: of this sender, from 0. Throws a Failure.
    Sender(const Settings& settings, std::size_t number, GuestStats& guests, Board& board);
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    // The body of the sending thread.
    void run(zxcommon::StopRequest& stop);

    // The sender does in its next turn, or soon after, what is wanted here.
    [[nodiscard]] Inbox& inbox() { return inbox_; }

    // True if everything that has left the queues is sent.
    [[nodiscard]] bool drained() const { return drained_; }

private:
    void turn();
    [[nodiscard]] int wait_ms();
    [[nodiscard]] bool is_round_due(std::uint64_t now_us) const;
    bool sleep();

    void handle(const epoll_event& event);
    void handle_client(Client& client, std::uint32_t events);
    void start_time_shift(Client& client, std::uint64_t seconds);

    void open_inbox();
    void disconnect_client(std::uint64_t number);
    void open_feed(const ChannelPtr& channel);
    void close_feed(const ChannelPtr& channel);
    void start(Reception::Start start);

    void send_round();
    void fill(Feed& feed);
    bool give_way();
    void send_to(Client& client);
    void update_watch(Client& client);
    void hold_in_reach(Client& client);
    void move_forward(Client& client, std::uint64_t position);

    void update_drained();
    void do_once_a_second();
    void disconnect(Client& client, const char* why);
    void remove_gone();

    const Settings settings_;
    const std::size_t number_;
    Budget budget_;
    Feeds feeds_;  // in the order of the ranks
    zxcommon::Epoll epoll_;
    Inbox inbox_;
    Publisher publisher_;
    LogLimit left_{"clients have gone"};
    LogLimit asked_{"clients have asked for the past stream"};
    Reception reception_;
    Clients clients_;
    bool have_gone_ = false;  // some of the clients
    bool has_logged_missing_store_ = false;
    std::uint64_t now_us_;
    std::uint64_t rest_until_us_ = 0;
    std::uint64_t last_second_us_ = 0;
    bool is_active_ = true;  // there is something to publish in a second
    std::atomic<bool> drained_{true};
};

}  // namespace relay
