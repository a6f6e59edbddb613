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
constexpr int kMessagesPerRound = 256;  // then the sockets are looked at again
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
        serve_shifted();
        check_drained();
        do_each_second();
        remove_ended();
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
        end(client, "is gone");
        return;
    }
    std::optional<std::uint64_t> seconds;
    if ((events & EPOLLIN) != 0 && !client.read_input(seconds)) {
        end(client, "has left");
    } else if (seconds) {
        shift(client, *seconds);
    } else if ((events & EPOLLOUT) != 0) {
        const std::uint64_t before = client.bytes_sent();
        const std::uint64_t dropped_before = client.dropped();
        if (!client.flush()) {
            end(client, "is gone");
        }
        stats_.dropped_slow_client += client.dropped() - dropped_before;
        stats_.bytes_out += client.bytes_sent() - before;
        watch(client);
    }
}

void Fanout::shift(Client& client, std::uint64_t seconds) {
    if (store_ != nullptr) {
        log({Level::notice, kTag}, "client %s receives from %llu s ago on", client.peer().c_str(),
            static_cast<unsigned long long>(seconds));
        client.shift(*store_, store_->back(seconds));
        watch(client);
    } else if (!missed_store_) {
        log({Level::info, kTag}, "client %s asks for what is past, which is not kept",
            client.peer().c_str());
        missed_store_ = true;
    }
}

// Has its socket watched for room exactly while it is behind.
void Fanout::watch(Client& client) {
    const bool is_behind = client.is_behind();
    if (is_behind != client.is_watched()) {
        client.set_watched(is_behind);
        epoll_.mod(client.fd(), is_behind ? EPOLLIN | EPOLLOUT : EPOLLIN);
    }
}

void Fanout::add_client(int fd, const std::string& peer) {
    auto client = std::make_unique<Client>(fd, peer, limits_.client_buffer);
    if (epoll_.add(fd, EPOLLIN)) {
        log({Level::notice, kTag}, "client %s has connected", peer.c_str());
        clients_.emplace(fd, std::move(client));
        ++stats_.clients;
    }
}

void Fanout::deliver() {
    if (!channel_.empty()) {
        drained_ = false;  // before anything leaves the channel: drained() is asked after empty()
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

// Shifted clients that had all go on when there is more.
void Fanout::serve_shifted() {
    if (store_ == nullptr || !store_->close_when_due()) {
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_shifted()) {
            watch(*client);
        }
    }
}

void Fanout::check_drained() {
    if (!channel_.empty() || (store_ != nullptr && store_->due_ms() >= 0)) {
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_behind()) {
            return;
        }
    }
    drained_ = true;
}

void Fanout::do_each_second() {
    if (zxtime_api_counterAsyncUs(&last_round_, kMicro) == 1) {
        end_stalled();
        listener_.resume();
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
                end(*client, "is gone");
                break;
        }
        stats_.bytes_out += client->bytes_sent() - before;
        if (!client->is_shifted()) {
            watch(*client);
        }
    }
}

void Fanout::end_stalled() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    for (const auto& [fd, client] : clients_) {
        if (client->is_watched() && now - client->last_progress_us() > limits_.stall_sec * kMicro) {
            end(*client, "takes nothing any more");
        }
    }
}

void Fanout::end(Client& client, const char* why) {
    if (std::find(ended_.begin(), ended_.end(), client.fd()) != ended_.end()) {
        return;
    }
    log({Level::notice, kTag}, "client %s %s: %llu bytes sent, %llu messages dropped",
        client.peer().c_str(), why, static_cast<unsigned long long>(client.bytes_sent()),
        static_cast<unsigned long long>(client.dropped()));
    ended_.push_back(client.fd());
}

// Last in a round, so that no event of the round meets a client that is no more.
void Fanout::remove_ended() {
    for (const int fd : ended_) {
        if (clients_.erase(fd) == 1) {
            --stats_.clients;
        }
    }
    ended_.clear();
}

}  // namespace relay
