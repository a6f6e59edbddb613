// Receives clients, until it is clear what they want.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "server/log_limit.hpp"
#include "stream/farewells.hpp"
#include "stream/feed.hpp"
#include "stream/http_answer.hpp"
#include "stream/newcomer.hpp"
#include "stream/on_demand.hpp"
#include "stream/stats.hpp"

namespace relay {

// Belongs to a sender, and works in its thread.
class Reception {
public:
    // A newcomer that receives a stream from now on. Its descriptor is in the epoll set, for input.
    struct Start {
        Guest& guest;  // to be taken
        Feed& feed;
        std::uint64_t position;
        std::uint64_t reach;  // how many bytes the client may lag
        std::string head;     // is sent before the stream; empty: the client does not use HTTP
        std::optional<std::uint64_t> last_seconds;  // the stream begins in the past
    };
    using Pass = std::function<void(Start)>;

    // `site`: its channels are those of `feeds` after update_site(). `on_demand` may be empty.
    // `left`: for the lines about clients that have gone.
    Reception(zxcommon::Epoll& epoll, const Feeds& feeds, Site site, OnDemand on_demand,
              GuestStats& guests, LogLimit& left, Pass pass);
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

    // Call this at the beginning of each turn, before the other functions.
    void set_time(std::uint64_t now_us) { now_us_ = now_us; }

    void welcome(Guest guest);
    void handle(int fd, std::uint32_t events);
    void decide_overdue();
    // Forgets those that are decided. Until then, events of their descriptors may follow.
    void remove_gone();

    // After the feeds have changed.
    void update_site();
    // Before a feed is closed.
    void leave(const Feed& feed);

    // The rings keep what newcomers may get.
    void hold_stream() const;
    // The ring gives up what is before `position`.
    void move_forward(const Ring& ring, std::uint64_t position);

    [[nodiscard]] std::uint64_t next_due_us() const;
    [[nodiscard]] bool empty() const { return newcomers_.empty(); }
    // True if a newcomer may turn out to be a client without HTTP.
    [[nodiscard]] bool has_silent() const;
    // Once a second. Returns true if it must be called again.
    bool report_when_due() { return connected_.report_when_due(); }

private:
    [[nodiscard]] Feed* first_listed() const;
    void listen(Newcomer& newcomer, std::uint32_t events);
    void decide(Newcomer& newcomer, Newcomer::Wish wish);
    void let_go(Newcomer& newcomer);
    void start_raw(Newcomer& newcomer);
    void answer_request(Newcomer& newcomer);
    bool must_wait(Newcomer& newcomer, HttpAnswer& answer);
    void answer_again(Newcomer& newcomer);
    void give(Newcomer& newcomer, HttpAnswer answer);
    void refuse(Newcomer& newcomer, std::string text);

    zxcommon::Epoll& epoll_;
    const Feeds& feeds_;
    Site site_;
    const OnDemand on_demand_;
    GuestStats& guests_;
    LogLimit& left_;
    LogLimit connected_{"clients have connected"};
    const Pass pass_;
    Farewells farewells_;
    std::unordered_map<int, std::unique_ptr<Newcomer>> newcomers_;  // by descriptor
    bool have_gone_ = false;  // some newcomers have no descriptor
    std::uint64_t now_us_ = 0;
};

}  // namespace relay
