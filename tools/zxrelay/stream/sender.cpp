#include "stream/sender.hpp"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/failure.hpp"
#include "common/seconds.hpp"
#include "stream/wait.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;
using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kEventsPerTurn = 64;
constexpr std::uint64_t kLongestTurnUs = 5 * kMicro;
// A client that sends no more may still receive. Only sending to it tells, and while the channel is
// silent, nothing is sent.
constexpr std::uint64_t kLongestDoubtUs = 5 * kMicro;

}  // namespace

Sender::Sender(const Settings& settings, std::size_t number, GuestStats& guests, Board& board)
    : settings_(settings),
      number_(number),
      budget_(settings.memory_bytes),
      publisher_(board, number),
      reception_(epoll_, feeds_, settings.site, settings.on_demand, guests, left_,
                 [this](Reception::Start start) { this->start(std::move(start)); }),
      now_us_(zxtime_api_upTimeUs()) {
    if (!epoll_.add(inbox_.fd(), EPOLLIN)) {
        throw tools::system_failure("cannot wait for the stream");
    }
}

void Sender::run(zxcommon::StopRequest& stop) {
    while (!stop.seen()) {
        turn();
    }
}

void Sender::turn() {
    epoll_event room[kEventsPerTurn];
    const int rest_ms = wait_ms();
    next_turn_us_ = rest_ms < 0 ? UINT64_MAX : now_us_ + static_cast<std::uint64_t>(rest_ms) * 1000;
    const auto events = epoll_.wait(room, rest_ms);
    now_us_ = zxtime_api_upTimeUs();
    next_turn_us_ = now_us_;
    reception_.set_time(now_us_);
    std::for_each(events.begin(), events.end(), [this](const auto& event) { handle(event); });
    reception_.decide_overdue();
    if (is_round_due(now_us_)) {
        send_round();
    }
    update_drained();
    do_once_a_second();
    // Earlier events of the turn may refer to a client. And a guest may have its descriptor.
    remove_gone();
    open_inbox();
}

bool Sender::is_live() const {
    const std::uint64_t since = next_turn_us_;  // may be later than now
    return zxtime_api_upTimeUs() < std::max(since, since + kLongestTurnUs);
}

// While the sender rests, no packet wakes it, unless a queue has much.
int Sender::wait_ms() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    if (is_round_due(now)) {
        return 0;
    }
    std::uint64_t due = reception_.next_due_us();
    due = is_active_ ? std::min(due, last_second_us_ + kMicro) : due;
    if (now < rest_until_us_) {
        due = std::min(due, rest_until_us_);
    } else if (!sleep()) {
        return 0;
    }
    return wait_until(due, now);
}

bool Sender::is_round_due(std::uint64_t now_us) const {
    return std::any_of(feeds_.begin(), feeds_.end(), [&](const auto& feed) {
        const Queue& queue = feed->queue;
        return queue.has_much() || (now_us >= rest_until_us_ && !queue.empty());
    });
}

// Returns false if a queue has packets already.
bool Sender::sleep() {
    bool are_empty = true;
    for (const auto& feed : feeds_) {
        are_empty = feed->queue.sleep() && are_empty;
    }
    return are_empty;
}

void Sender::handle(const epoll_event& event) {
    const int fd = event.data.fd;
    if (const auto client = clients_.find(fd); client != clients_.end()) {
        handle_client(*client->second, event.events);
    } else if (fd == inbox_.fd()) {
        inbox_.clear_wake();
    } else if (const auto feed =
                   std::find_if(feeds_.begin(), feeds_.end(),
                                [fd](const auto& one) { return one->queue.wake_fd() == fd; });
               feed != feeds_.end()) {
        (*feed)->queue.clear_wake();
    } else {
        reception_.handle(fd, event.events);
    }
}

// -- what other threads want

void Sender::open_inbox() {
    Inbox::Content inbox = inbox_.take();
    std::ranges::for_each(inbox.disconnected, [this](auto number) { disconnect_client(number); });
    remove_gone();
    std::ranges::for_each(inbox.opened, [this](const auto& channel) { open_feed(channel); });
    std::ranges::for_each(inbox.closed, [this](const auto& channel) { close_feed(channel); });
    if (inbox.has_changed) {
        sort_by_rank(feeds_, [](const auto& feed) -> const Channel& { return feed->channel; });
        reception_.update_site();
    }
    is_active_ = is_active_ || !inbox.guests.empty();
    std::ranges::for_each(inbox.guests,
                          [this](Guest& guest) { reception_.welcome(std::move(guest)); });
}

void Sender::disconnect_client(std::uint64_t number) {
    const auto client = std::ranges::find_if(
        clients_, [&](const auto& item) { return item.second->number() == number; });
    if (client != clients_.end()) {
        disconnect(*client->second, "is disconnected by request");
    }
}

void Sender::open_feed(const ChannelPtr& channel) {
    feeds_.push_back(std::make_unique<Feed>(channel, number_, budget_));
    if (!epoll_.add(feeds_.back()->queue.wake_fd(), EPOLLIN)) {
        log({Level::error, kTag}, "cannot wait for the channel %s", channel->name().c_str());
    }
}

// The clients of the channel lose their connections.
void Sender::close_feed(const ChannelPtr& channel) {
    const auto place = std::ranges::find_if(
        feeds_, [&](const auto& feed) { return &feed->channel == channel.get(); });
    if (place == feeds_.end()) {
        return;
    }
    Feed* const feed = place->get();
    reception_.leave(*feed);
    for (const auto& [fd, client] : clients_) {
        if (&client->feed() == feed) {
            disconnect(*client, "loses its channel");
        }
    }
    remove_gone();
    epoll_.del(feed->queue.wake_fd());
    feeds_.erase(place);
}

// -- clients

// The clients that use HTTP have made their request.
void Sender::start(Reception::Start start) {
    auto client = std::make_unique<Client>(std::move(start.guest), start.feed, start.position,
                                           start.reach, start.head, now_us_);
    Client& started = *client;
    clients_.emplace(started.fd(), std::move(client));
    ++start.feed.channel.stats.clients;
    if (!start.head.empty()) {
        started.ignore_requests();
    }
    if (start.last_seconds) {
        start_time_shift(started, *start.last_seconds);
    }
    update_watch(started);
}

void Sender::handle_client(Client& client, std::uint32_t events) {
    std::optional<std::uint64_t> seconds;
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        disconnect(client, "has lost its connection");
    } else if ((events & EPOLLIN) != 0 && !client.read_input(seconds)) {
        disconnect(client, "has disconnected");
    } else if (seconds) {
        start_time_shift(client, *seconds);
        update_watch(client);
    } else if ((events & EPOLLOUT) != 0) {
        send_to(client);
    } else {
        update_watch(client);
    }
}

void Sender::start_time_shift(Client& client, std::uint64_t seconds) {
    if (client.feed().channel.settings().keep_us != 0) {
        if (asked_.admits()) {
            log({Level::notice, kTag}, "client %s receives the stream starting %llu s ago",
                client.peer().c_str(), static_cast<unsigned long long>(seconds));
        }
        client.shift_to(client.feed().ring.seek_back(seconds, now_us_));
    } else if (!has_logged_missing_store_) {
        log({Level::info, kTag}, "client %s asks for the past stream, but --keep is not set",
            client.peer().c_str());
        has_logged_missing_store_ = true;
    }
}

void Sender::send_to(Client& client) {
    if (client.is_gone()) {
        return;
    }
    const std::uint64_t before = client.bytes_sent();
    if (!client.send_due(now_us_)) {
        disconnect(client, "has lost its connection");
    }
    client.feed().channel.stats.bytes_out += client.bytes_sent() - before;
    update_watch(client);
}

// Lets epoll wait for room in the socket exactly while the client lags.
void Sender::update_watch(Client& client) {
    const std::uint32_t wanted = client.wanted_events();
    if (wanted != client.watched_events()) {
        client.set_watched_events(wanted, now_us_);
        epoll_.mod(client.fd(), wanted);
    }
}

// -- rounds

void Sender::send_round() {
    // Cleared before a packet leaves a queue: the main thread checks empty() before drained().
    drained_ = false;
    is_active_ = true;
    rest_until_us_ = now_us_ + settings_.latency_us;
    for (const auto& feed : feeds_) {
        fill(*feed);
        feed->needed_from = feed->ring.kept_from(now_us_);
        rest_until_us_ = feed->queue.empty() ? rest_until_us_ : 0;  // the next round is due
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_blocked()) {
            hold_in_reach(*client);
        } else {
            send_to(*client);
        }
        client->feed().need_from(client->position());
    }
    reception_.hold_stream();
    for (const auto& feed : feeds_) {
        feed->ring.trim(feed->needed_from);
    }
}

void Sender::fill(Feed& feed) {
    if (!feed.fill(now_us_) && !(give_way() && feed.fill(now_us_))) {
        feed.lose();
    }
}

// Frees the oldest block of the longest ring: its slowest client lags most, or its time shift
// reaches back furthest. Returns false if there is no block.
bool Sender::give_way() {
    Ring& ring = (*std::max_element(feeds_.begin(), feeds_.end(), [](auto& a, auto& b) {
                     return a->ring.blocks() < b->ring.blocks();
                 }))->ring;
    const std::uint64_t position = ring.front_end();
    if (position == ring.begin()) {
        return false;
    }
    for (const auto& [fd, client] : clients_) {
        if (&client->feed().ring == &ring) {
            move_forward(*client, position);
        }
    }
    reception_.move_forward(ring, position);
    ring.drop_front();
    return true;
}

void Sender::hold_in_reach(Client& client) {
    Ring& ring = client.feed().ring;
    const std::uint64_t end = ring.end();
    const std::uint64_t oldest =
        client.is_time_shifted() ? ring.kept_from(now_us_)
                                 : end - std::min(end, client.reach()) / kPacketSize * kPacketSize;
    move_forward(client, oldest);
}

void Sender::move_forward(Client& client, std::uint64_t position) {
    if (client.position() < position) {
        client.feed().channel.stats.dropped_slow_client += client.skip_to(position);
    }
}

void Sender::update_drained() {
    const bool lags = drained_ || reception_.has_silent() ||
                      std::any_of(feeds_.begin(), feeds_.end(),
                                  [](const auto& feed) { return !feed->queue.empty(); }) ||
                      std::any_of(clients_.begin(), clients_.end(), [](const auto& item) {
                          return item.second->bytes_waiting() != 0;
                      });
    drained_ = drained_ || !lags;
}

// -- once a second

void Sender::do_once_a_second() {
    if (!is_active_ || now_us_ - last_second_us_ < kMicro) {
        return;
    }
    last_second_us_ = now_us_;
    is_active_ = !clients_.empty() || !reception_.empty();
    is_active_ = reception_.report_when_due() || is_active_;
    for (LogLimit* const limit : {&left_, &asked_}) {
        is_active_ = limit->report_when_due() || is_active_;
    }
    for (const auto& [fd, client] : clients_) {
        const std::uint64_t silence_us = now_us_ - client->last_progress_us();
        if (client->is_blocked() && silence_us > settings_.stall_us) {
            disconnect(*client, "has accepted no data for too long");
        } else if (client->has_ended_input() && silence_us > kLongestDoubtUs) {
            disconnect(*client, "has disconnected");
        }
        client->renew_input();
        update_watch(*client);
    }
    publisher_.publish(clients_, feeds_);
}

void Sender::disconnect(Client& client, const char* why) {
    if (client.is_gone()) {
        return;
    }
    if (left_.admits()) {
        log({Level::notice, kTag}, "client %s %s: %llu bytes sent, %llu messages dropped",
            client.peer().c_str(), why, static_cast<unsigned long long>(client.bytes_sent()),
            static_cast<unsigned long long>(client.dropped()));
    }
    client.set_gone();
    have_gone_ = true;
}

void Sender::remove_gone() {
    reception_.remove_gone();
    if (!std::exchange(have_gone_, false)) {
        return;
    }
    std::erase_if(clients_, [](const auto& item) {
        const bool is_gone = item.second->is_gone();
        item.second->feed().channel.stats.clients -= is_gone ? 1 : 0;
        return is_gone;
    });
}

}  // namespace relay
