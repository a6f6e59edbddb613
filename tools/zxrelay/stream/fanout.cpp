#include "stream/fanout.hpp"

#include <algorithm>
#include <utility>

#include "common/failure.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kEventsPerRound = 64;
constexpr int kMessagesPerRound = 256;  // then the sockets get their turn
constexpr int kWaitMs = 500;
constexpr std::uint64_t kMicro = 1000000;

}  // namespace

Fanout::Fanout(zxcommon::Descriptor listener, const Limits& limits, Channel& channel, Store* store,
               Stats& stats, Board& board)
    : limits_(limits),
      channel_(channel),
      store_(store),
      stats_(stats),
      listener_(std::move(listener), epoll_),
      publisher_(board),
      message_(kLargestMessage) {
    if (!epoll_.add(channel_.wake_fd(), EPOLLIN)) {
        throw tools::system_failure("cannot wait for the stream");
    }
}

void Fanout::run(zxcommon::StopRequest& stop) {
    while (!stop.seen()) {
        epoll_event room[kEventsPerRound];
        const int due_ms = store_ != nullptr ? store_->due_ms() : -1;
        for (const epoll_event& event : epoll_.wait(room, due_ms < 0 ? kWaitMs : due_ms)) {
            handle(event);
        }
        deliver();
        resume_time_shifted();
        update_drained();
        do_once_a_second();
        remove_disconnected();
    }
}

void Fanout::handle(const epoll_event& event) {
    if (event.data.fd == listener_.fd()) {
        listener_.accept_all([this](int fd, const std::string& peer) { add_client(fd, peer); });
    } else if (event.data.fd == channel_.wake_fd()) {
        channel_.clear_wake();
    } else if (const auto found = clients_.find(event.data.fd); found != clients_.end()) {
        handle_client(*found->second, event.events);
    }
}

void Fanout::handle_client(Client& client, std::uint32_t events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        disconnect(client, "has lost its connection");
        return;
    }
    std::optional<std::uint64_t> seconds;
    if ((events & EPOLLIN) != 0 && !client.read_input(seconds)) {
        disconnect(client, "has disconnected");
    } else if (seconds) {
        start_time_shift(client, *seconds);
    } else if ((events & EPOLLOUT) != 0) {
        const std::uint64_t before = client.bytes_sent();
        const std::uint64_t dropped_before = client.dropped();
        if (!client.flush()) {
            disconnect(client, "has lost its connection");
        }
        stats_.dropped_slow_client += client.dropped() - dropped_before;
        stats_.bytes_out += client.bytes_sent() - before;
        update_watch(client);
    }
}

void Fanout::start_time_shift(Client& client, std::uint64_t seconds) {
    const bool is_logged = asked_.admits();
    if (store_ != nullptr) {
        if (is_logged) {
            log({Level::notice, kTag}, "client %s receives the stream from %llu s ago on",
                client.peer().c_str(), static_cast<unsigned long long>(seconds));
        }
        client.start_time_shift(*store_, store_->seek_back(seconds));
        update_watch(client);
    } else if (is_logged) {
        log({Level::info, kTag}, "client %s asks for the past stream, but --keep is not set",
            client.peer().c_str());
    }
}

// Lets epoll wait for room in the socket exactly while the client lags.
void Fanout::update_watch(Client& client) {
    const bool lags = client.lags();
    if (lags != client.is_watched()) {
        client.set_watched(lags);
        epoll_.mod(client.fd(), lags ? EPOLLIN | EPOLLOUT : EPOLLIN);
    }
}

void Fanout::add_client(int fd, const std::string& peer) {
    auto client = std::make_unique<Client>(fd, peer, limits_.client_buffer_bytes);
    if (epoll_.add(fd, EPOLLIN)) {
        if (connected_.admits()) {
            log({Level::notice, kTag}, "client %s has connected", peer.c_str());
        }
        ++stats_.connections;
        clients_.emplace(fd, std::move(client));
        ++stats_.clients;
    }
}

void Fanout::deliver() {
    if (!channel_.empty()) {
        // Clear this before a message leaves the channel: the main thread checks empty() before
        // drained().
        drained_ = false;
    }
    for (int i = 0; i < kMessagesPerRound; ++i) {
        const auto message = channel_.pop(message_);
        if (message.empty()) {
            break;
        }
        deliver_to_all(message);
    }
    if (!channel_.empty()) {
        channel_.wake();
    }
}

// Time-shifted clients that had read the whole store continue when it has a new node.
void Fanout::resume_time_shifted() {
    if (store_ == nullptr || !store_->close_node_when_due()) {
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_time_shifted()) {
            update_watch(*client);
        }
    }
}

void Fanout::update_drained() {
    if (!channel_.empty() || (store_ != nullptr && store_->due_ms() >= 0)) {
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->lags()) {
            return;
        }
    }
    drained_ = true;
}

void Fanout::do_once_a_second() {
    if (zxtime_api_counterAsyncUs(&last_second_us_, kMicro) == 1) {
        disconnect_stalled();
        listener_.resume();
        for (LogLimit* const limit : {&connected_, &gone_, &asked_}) {
            limit->report_when_due();
        }
        publisher_.publish(clients_, store_);
    }
}

void Fanout::deliver_to_all(std::span<const std::uint8_t> message) {
    if (store_ != nullptr) {
        store_->add(message);
    }
    for (const auto& [fd, client] : clients_) {
        const std::uint64_t before = client->bytes_sent();
        switch (client->offer(message)) {
            case Client::Outcome::sent:
                break;
            case Client::Outcome::dropped:
                ++stats_.dropped_slow_client;
                break;
            case Client::Outcome::gone:
                disconnect(*client, "has lost its connection");
                break;
        }
        stats_.bytes_out += client->bytes_sent() - before;
        if (!client->is_time_shifted()) {
            update_watch(*client);
        }
    }
}

void Fanout::disconnect_stalled() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    for (const auto& [fd, client] : clients_) {
        if (client->is_watched() &&
            now - client->last_progress_us() > limits_.stall_timeout_seconds * kMicro) {
            disconnect(*client, "has accepted no data for too long");
        }
    }
}

void Fanout::disconnect(Client& client, const char* why) {
    if (std::find(disconnected_.begin(), disconnected_.end(), client.fd()) != disconnected_.end()) {
        return;
    }
    if (gone_.admits()) {
        log({Level::notice, kTag}, "client %s %s: %llu bytes sent, %llu messages dropped",
            client.peer().c_str(), why, static_cast<unsigned long long>(client.bytes_sent()),
            static_cast<unsigned long long>(client.dropped()));
    }
    disconnected_.push_back(client.fd());
}

// Runs at the end of a round: earlier events of the round may still refer to these clients.
void Fanout::remove_disconnected() {
    for (const int fd : disconnected_) {
        if (clients_.erase(fd) == 1) {
            --stats_.clients;
        }
    }
    disconnected_.clear();
}

}  // namespace relay
