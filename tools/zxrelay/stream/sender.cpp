#include "stream/sender.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "common/failure.hpp"
#include "stream/wait.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kEventsPerTurn = 64;
constexpr std::uint64_t kMicro = 1000000;

}  // namespace

Sender::Sender(const Settings& settings, std::size_t number, GuestStats& guests, Board& board)
    : settings_(settings),
      number_(number),
      guests_(guests),
      budget_(settings.memory_bytes),
      site_{{}, settings.cors_origin},
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      publisher_(board, number),
      farewells_(epoll_),
      now_us_(zxtime_api_upTimeUs()) {
    if (!epoll_.add(wake_.get(), EPOLLIN)) {
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
    const auto events = epoll_.wait(room, wait_ms());
    now_us_ = zxtime_api_upTimeUs();
    std::for_each(events.begin(), events.end(), [this](const auto& event) { handle(event); });
    decide_overdue();
    farewells_.close_overdue(now_us_);
    if (is_round_due(now_us_)) {
        send_round();
    }
    update_drained();
    do_once_a_second();
    // Earlier events of the turn may refer to a client. And a guest may have its descriptor.
    remove_gone();
    open_inbox();
}

// While the sender rests, no packet wakes it, unless a queue has much.
int Sender::wait_ms() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    if (is_round_due(now)) {
        return 0;
    }
    std::uint64_t due = farewells_.next_due_us();
    due = is_active_ ? std::min(due, last_second_us_ + kMicro) : due;
    for (const auto& [fd, newcomer] : newcomers_) {
        due = std::min(due, newcomer->due_us());
    }
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
    } else if (const auto newcomer = newcomers_.find(fd); newcomer != newcomers_.end()) {
        handle_newcomer(*newcomer->second, event.events);
    } else if (fd == wake_.get()) {
        clear_wake();
    } else if (const auto feed =
                   std::find_if(feeds_.begin(), feeds_.end(),
                                [fd](const auto& one) { return one->queue.wake_fd() == fd; });
               feed != feeds_.end()) {
        (*feed)->queue.clear_wake();
    } else {
        farewells_.handle(fd);
    }
}

// -- what other threads want

void Sender::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(wake_.get(), &one, sizeof one);
}

void Sender::clear_wake() {
    if (!is_closed_) {
        std::uint64_t count;
        [[maybe_unused]] const ssize_t got = read(wake_.get(), &count, sizeof count);
    }
}

void Sender::close() {
    is_closed_ = true;
    wake();
}

void Sender::change(const ChannelList& closed, const ChannelList& opened) {
    {
        const std::scoped_lock lock(inbox_mutex_);
        inbox_.closed.insert(inbox_.closed.end(), closed.begin(), closed.end());
        inbox_.opened.insert(inbox_.opened.end(), opened.begin(), opened.end());
    }
    wake();
}

void Sender::adopt(Guest guest) {
    {
        const std::scoped_lock lock(inbox_mutex_);
        inbox_.guests.push_back(std::move(guest));
    }
    wake();
}

void Sender::disconnect(std::uint64_t client) {
    {
        const std::scoped_lock lock(inbox_mutex_);
        inbox_.disconnected.push_back(client);
    }
    wake();
}

void Sender::open_inbox() {
    Inbox inbox;
    {
        const std::scoped_lock lock(inbox_mutex_);
        std::swap(inbox, inbox_);
    }
    for (const std::uint64_t number : inbox.disconnected) {
        const auto client = std::ranges::find_if(
            clients_, [&](const auto& item) { return item.second->number() == number; });
        if (client != clients_.end()) {
            disconnect(*client->second, "is disconnected by request");
        }
    }
    remove_gone();
    // A channel that is opened and closed again before this turn is in both lists.
    std::ranges::for_each(inbox.opened, [this](const auto& channel) { open_feed(channel); });
    std::ranges::for_each(inbox.closed, [this](const auto& channel) { close_feed(channel); });
    if (!inbox.opened.empty() || !inbox.closed.empty()) {
        update_site();
    }
    std::ranges::for_each(inbox.guests, [this](Guest& guest) { welcome(std::move(guest)); });
}

void Sender::open_feed(const ChannelPtr& channel) {
    const auto place = std::upper_bound(
        feeds_.begin(), feeds_.end(), channel->settings().rank,
        [](unsigned rank, const auto& feed) { return rank < feed->channel.settings().rank; });
    const auto feed = feeds_.insert(place, std::make_unique<Feed>(channel, number_, budget_));
    if (!epoll_.add((*feed)->queue.wake_fd(), EPOLLIN)) {
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
    for (const auto& [fd, newcomer] : newcomers_) {
        newcomer->raw_feed = newcomer->raw_feed == feed ? nullptr : newcomer->raw_feed;
    }
    for (const auto& [fd, client] : clients_) {
        if (&client->feed() == feed) {
            disconnect(*client, "loses its channel");
        }
    }
    remove_gone();
    epoll_.del(feed->queue.wake_fd());
    feeds_.erase(place);
}

void Sender::update_site() {
    site_.channels.clear();
    for (const auto& feed : feeds_) {
        const ChannelSettings& settings = feed->channel.settings();
        site_.channels.push_back({settings.name, settings.is_listed});
    }
}

// -- newcomers

// A client for which there is no memory loses its connection.
void Sender::welcome(Guest guest) {
    const int fd = guest.fd.get();
    const std::string peer = guest.peer;
    try {
        Feed* const raw = feeds_.empty() ? nullptr : feeds_.front().get();
        auto newcomer = std::make_unique<Newcomer>(std::move(guest), raw, now_us_);
        if (epoll_.add(fd, EPOLLIN)) {
            newcomers_.emplace(fd, std::move(newcomer));
            is_active_ = true;
            ++guests_.connections;
            if (connected_.admits()) {
                log({Level::notice, kTag}, "client %s has connected", peer.c_str());
            }
        }
    } catch (const std::exception&) {
        if (connected_.admits()) {
            log({Level::error, kTag}, "no memory for client %s", peer.c_str());
        }
    }
}

void Sender::handle_newcomer(Newcomer& newcomer, std::uint32_t events) {
    const bool is_lost = (events & (EPOLLERR | EPOLLHUP)) != 0;
    try {
        decide(newcomer, is_lost ? Newcomer::Wish::gone : newcomer.listen());
    } catch (const std::exception&) {
        decide(newcomer, Newcomer::Wish::gone);
    }
}

void Sender::decide_overdue() {
    for (const auto& [fd, newcomer] : newcomers_) {
        if (!newcomer->guest.fd || newcomer->due_us() > now_us_) {
            continue;
        }
        try {
            decide(*newcomer, newcomer->is_silent() ? Newcomer::Wish::raw : Newcomer::Wish::late);
        } catch (const std::exception&) {
            decide(*newcomer, Newcomer::Wish::gone);
        }
    }
}

void Sender::decide(Newcomer& newcomer, Newcomer::Wish wish) {
    switch (wish) {
        case Newcomer::Wish::unknown:
            break;
        case Newcomer::Wish::raw:
            start_raw(newcomer);
            break;
        case Newcomer::Wish::http:
            answer(newcomer, answer_to(newcomer.request(), site_));
            break;
        case Newcomer::Wish::late:
            answer(newcomer, {refusal(HTTP_STATUS_REQUEST_TIMEOUT, site_), {}, {}});
            break;
        case Newcomer::Wish::gone:
            if (left_.admits()) {
                log({Level::notice, kTag}, "client %s has disconnected",
                    newcomer.guest.peer.c_str());
            }
            newcomer.guest.fd.reset();
            have_gone_ = true;
            break;
    }
}

// The client may lag by what has come since it connected, and as far as the others.
void Sender::start_raw(Newcomer& newcomer) {
    Feed* const feed = newcomer.raw_feed;
    if (feed == nullptr) {
        decide(newcomer, Newcomer::Wish::gone);
        return;
    }
    const std::uint64_t waiting = feed->ring.end() - newcomer.position;
    const std::uint64_t reach = feed->channel.settings().client_buffer_bytes + waiting;
    start(newcomer, *feed, newcomer.position, reach, "");
}

void Sender::answer(Newcomer& newcomer, const HttpAnswer& answer) {
    if (!answer.channel) {
        epoll_.del(newcomer.guest.fd.get());
        farewells_.say(std::move(newcomer.guest.fd), answer.text, now_us_);
        have_gone_ = true;
        return;
    }
    Feed& feed = *feeds_[*answer.channel];
    const std::uint64_t reach = feed.channel.settings().client_buffer_bytes;
    Client& client = start(newcomer, feed, feed.ring.end(), reach, answer.text);
    client.ignore_requests();
    if (answer.last_seconds) {
        start_time_shift(client, *answer.last_seconds);
    }
    update_watch(client);
}

// The newcomer loses its descriptor to the client.
Client& Sender::start(Newcomer& newcomer, Feed& feed, std::uint64_t position, std::uint64_t reach,
                      const std::string& first) {
    have_gone_ = true;
    auto client = std::make_unique<Client>(std::move(newcomer.guest), feed, position, reach, first);
    Client& started = *client;
    clients_.emplace(started.fd(), std::move(client));
    ++feed.channel.stats.clients;
    update_watch(started);
    return started;
}

// -- clients

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
    const bool lags = client.bytes_waiting() != 0;
    if (lags != client.is_watched()) {
        client.set_watched(lags, now_us_);
        epoll_.mod(client.fd(), lags ? EPOLLIN | EPOLLOUT : EPOLLIN);
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
        if (client->is_watched()) {
            hold_in_reach(*client);
        } else {
            send_to(*client);
        }
        client->feed().need_from(client->position());
    }
    for (const auto& [fd, newcomer] : newcomers_) {
        if (newcomer->is_silent() && newcomer->raw_feed != nullptr) {
            newcomer->raw_feed->need_from(newcomer->position);
        }
    }
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
    for (const auto& [fd, newcomer] : newcomers_) {
        if (newcomer->raw_feed != nullptr && &newcomer->raw_feed->ring == &ring) {
            newcomer->position = std::max(newcomer->position, position);
        }
    }
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
    const bool lags = drained_ ||
                      std::any_of(feeds_.begin(), feeds_.end(),
                                  [](const auto& feed) { return !feed->queue.empty(); }) ||
                      std::any_of(newcomers_.begin(), newcomers_.end(),
                                  [](const auto& item) { return item.second->is_silent(); }) ||
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
    is_active_ = !clients_.empty() || !newcomers_.empty();
    for (LogLimit* const limit : {&connected_, &left_, &asked_}) {
        is_active_ = limit->report_when_due() || is_active_;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_watched() && now_us_ - client->last_progress_us() > settings_.stall_us) {
            disconnect(*client, "has accepted no data for too long");
        }
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
    if (!std::exchange(have_gone_, false)) {
        return;
    }
    std::erase_if(newcomers_, [](const auto& item) { return !item.second->guest.fd; });
    std::erase_if(clients_, [](const auto& item) {
        const bool is_gone = item.second->is_gone();
        item.second->feed().channel.stats.clients -= is_gone ? 1 : 0;
        return is_gone;
    });
}

}  // namespace relay
