// The sending side: sends the channels to their clients.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "server/log_limit.hpp"
#include "stream/channel.hpp"
#include "stream/client.hpp"
#include "stream/farewells.hpp"
#include "stream/feed.hpp"
#include "stream/http_answer.hpp"
#include "stream/newcomer.hpp"
#include "stream/publisher.hpp"
#include "stream/roster.hpp"

namespace relay {

// A sender has clients and rings of its own. In a round, it takes what has come and sends to every
// client what is due, in one call for each. It rests between the rounds.
class Sender {
public:
    struct Settings {
        std::uint64_t latency_us;    // from round to round
        std::uint64_t stall_us;      // how long a client may accept no data
        std::uint64_t memory_bytes;  // for the rings of this sender
        std::string cors_origin;     // whose pages may read the streams; empty: nobody's
    };

    // `number`: of this sender, from 0. Throws a Failure.
    Sender(const Settings& settings, std::size_t number, GuestStats& guests, Board& board);
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    // The body of the sending thread.
    void run(zxcommon::StopRequest& stop);

    // Any thread may call these functions. The sender acts in its next turn, or soon after.
    void change(const ChannelList& closed, const ChannelList& opened);
    void adopt(Guest guest);                // serves a new client
    void disconnect(std::uint64_t client);  // by its number
    void close();                           // from now on, the thread does not wait

    // True if everything that has left the queues is sent.
    [[nodiscard]] bool drained() const { return drained_; }

private:
    void turn();
    [[nodiscard]] int wait_ms();
    [[nodiscard]] bool is_round_due(std::uint64_t now_us) const;
    bool sleep();

    void handle(const epoll_event& event);
    void handle_client(Client& client, std::uint32_t events);
    void handle_newcomer(Newcomer& newcomer, std::uint32_t events);
    void start_time_shift(Client& client, std::uint64_t seconds);

    void clear_wake();
    void open_inbox();
    void open_feed(const ChannelPtr& channel);
    void close_feed(const ChannelPtr& channel);
    void update_site();
    void welcome(Guest guest);
    void decide_overdue();
    void decide(Newcomer& newcomer, Newcomer::Wish wish);
    void start_raw(Newcomer& newcomer);
    void answer(Newcomer& newcomer, const HttpAnswer& answer);
    Client& start(Newcomer& newcomer, Feed& feed, std::uint64_t position, std::uint64_t reach,
                  const std::string& first);

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
    GuestStats& guests_;
    Budget budget_;
    Feeds feeds_;  // in the order of the ranks
    Site site_;    // with the channels of feeds_
    zxcommon::Epoll epoll_;
    zxcommon::Descriptor wake_;
    Publisher publisher_;
    Farewells farewells_;
    std::unordered_map<int, std::unique_ptr<Newcomer>> newcomers_;  // by descriptor
    Clients clients_;
    bool have_gone_ = false;  // newcomers without a descriptor, or clients that are gone
    bool has_logged_missing_store_ = false;
    std::uint64_t now_us_;
    std::uint64_t rest_until_us_ = 0;
    std::uint64_t last_second_us_ = 0;
    LogLimit connected_{"clients have connected"};
    LogLimit left_{"clients have gone"};
    LogLimit asked_{"clients have asked for the past stream"};
    bool is_active_ = true;  // there is something to publish in a second
    std::atomic<bool> drained_{true};

    // What other threads want of this one.
    struct Inbox {
        ChannelList closed;
        ChannelList opened;
        std::vector<Guest> guests;
        std::vector<std::uint64_t> disconnected;
    };
    void wake();
    std::mutex inbox_mutex_;
    Inbox inbox_;
    std::atomic<bool> is_closed_{false};
};

}  // namespace relay
